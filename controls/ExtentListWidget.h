// ExtentListWidget: a list whose horizontal scroll range is set by its owner
// instead of following the texts it currently holds. The chooser raises the
// extent to the widest text it ever put into the list, so emptying the list
// never takes that room away again.
#pragma once

#include <QList>
#include <QListWidget>
#include <QStringList>

namespace controls {

class ExtentListWidget : public QListWidget {
  Q_OBJECT

 public:
  explicit ExtentListWidget(QWidget* parent = nullptr);

  // The width in pixels the content may be scrolled across; whatever of it
  // does not fit the viewport becomes the horizontal scroll range. 0, the
  // start value, means no horizontal scrolling at all.
  void setHorizontalExtent(int pixels);
  int horizontalExtent() const { return extent_; }

 protected:
  void updateGeometries() override;

 private:
  int extent_ = 0;
  bool updating_ = false;  // the base layout may call back in
};

// Replaces the items of `list` by `texts`, item i carrying ids[i] under
// `role`, in one insertion: the view lays itself out once instead of once
// per item, which made long lists cost the square of their length.
void fillInOnePass(QListWidget* list, const QStringList& texts, const QList<int>& ids, int role);

}  // namespace controls
