// The main window: menus and the four tabs, all disabled while no document is open.
// Opening, saving and the tabs' contents are not wired in yet.
#pragma once

#include <QMainWindow>
#include <memory>

namespace Ui {
class frmMain;
}

class frmMain : public QMainWindow {
  Q_OBJECT

 public:
  explicit frmMain(QWidget* parent = nullptr);
  ~frmMain() override;

 private:
  std::unique_ptr<Ui::frmMain> ui_;
};
