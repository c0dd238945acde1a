#include "controls/ExtentListWidget.h"

#include <QScrollBar>
#include <algorithm>

namespace controls {

ExtentListWidget::ExtentListWidget(QWidget* parent) : QListWidget(parent) {}

void ExtentListWidget::setHorizontalExtent(int pixels) {
  extent_ = std::max(0, pixels);
  updateGeometries();
}

void ExtentListWidget::updateGeometries() {
  // The view sizes its horizontal range from the present items on every
  // layout; the stored extent has the last word.
  QListWidget::updateGeometries();
  QScrollBar* bar = horizontalScrollBar();
  const int page = viewport()->width();
  bar->setPageStep(page);
  bar->setRange(0, std::max(0, extent_ - page));
}

}  // namespace controls
