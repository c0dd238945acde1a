#include "controls/ExtentListWidget.h"

#include <QScrollBar>
#include <algorithm>

namespace controls {

ExtentListWidget::ExtentListWidget(QWidget* parent) : QListWidget(parent) {
  setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
}

void ExtentListWidget::setHorizontalExtent(int pixels) {
  extent_ = std::max(0, pixels);
  // The bar's visibility is decided here once, never by the range: a bar
  // that comes and goes with the range changes the viewport's width, which
  // changes the range again, and the view never settles.
  setHorizontalScrollBarPolicy(extent_ > 0 ? Qt::ScrollBarAlwaysOn : Qt::ScrollBarAlwaysOff);
  updateGeometries();
}

void ExtentListWidget::updateGeometries() {
  if (updating_) return;
  updating_ = true;
  // The view sizes its horizontal range from the present items on every
  // layout; the stored extent has the last word.
  QListWidget::updateGeometries();
  QScrollBar* bar = horizontalScrollBar();
  const int page = viewport()->width();
  bar->setPageStep(page);
  bar->setRange(0, std::max(0, extent_ - page));
  updating_ = false;
}

void fillInOnePass(QListWidget* list, const QStringList& texts, const QList<int>& ids, int role) {
  list->clear();
  list->addItems(texts);
  for (int i = 0; i < ids.size() && i < list->count(); ++i) list->item(i)->setData(role, ids[i]);
}

}  // namespace controls
