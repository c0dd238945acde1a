#include "shell/HelpViewer.h"

#include <QAction>
#include <QApplication>
#include <QDialog>
#include <QFileInfo>
#include <QIcon>
#include <QImage>
#include <QKeySequence>
#include <QPainter>
#include <QPointer>
#include <QStyle>
#include <QTextBrowser>
#include <QToolBar>

namespace shell {

namespace {

QPointer<HelpViewer>& theViewer() {
  static QPointer<HelpViewer> viewer;
  return viewer;
}

// The help's pictures are screenshots installed beside it. One that is not
// there shows as a slim note rather than as a broken picture blown up to the
// width the page asks for.
class HelpBrowser : public QTextBrowser {
 public:
  using QTextBrowser::QTextBrowser;

  QVariant loadResource(int type, const QUrl& name) override {
    QVariant resource = QTextBrowser::loadResource(type, name);
    if (type != QTextDocument::ImageResource || resource.isValid()) return resource;
    QImage note(600, 30, QImage::Format_RGB32);
    note.fill(QColor(0xee, 0xf1, 0xf5));
    QPainter painter(&note);
    painter.setPen(QColor(0x5b, 0x67, 0x75));
    painter.drawText(note.rect().adjusted(10, 0, -10, 0), Qt::AlignVCenter | Qt::AlignLeft,
                     QStringLiteral("Picture not installed: ") + name.fileName());
    return note;
  }
};

}  // namespace

HelpViewer::HelpViewer(QWidget* parent) : QMainWindow(parent, Qt::Window) {
  setObjectName(QStringLiteral("HelpViewer"));
  setWindowTitle(QStringLiteral("Vantor Help"));
  setWindowIcon(QIcon(QStringLiteral(":/icons/vantor.svg")));
  // Help left open must not keep the program running once its main window
  // is closed.
  setAttribute(Qt::WA_QuitOnClose, false);

  browser_ = new HelpBrowser(this);
  browser_->setObjectName(QStringLiteral("helpBrowser"));
  browser_->setOpenExternalLinks(true);
  setCentralWidget(browser_);

  QToolBar* bar = addToolBar(QStringLiteral("Navigation"));
  bar->setObjectName(QStringLiteral("helpToolBar"));
  bar->setMovable(false);
  bar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);

  back_ = bar->addAction(style()->standardIcon(QStyle::SP_ArrowBack), QStringLiteral("&Back"));
  back_->setObjectName(QStringLiteral("actionBack"));
  back_->setShortcut(QKeySequence(Qt::ALT | Qt::Key_Left));
  back_->setEnabled(false);
  connect(back_, &QAction::triggered, browser_, &QTextBrowser::backward);
  connect(browser_, &QTextBrowser::backwardAvailable, back_, &QAction::setEnabled);

  forward_ =
      bar->addAction(style()->standardIcon(QStyle::SP_ArrowForward), QStringLiteral("&Forward"));
  forward_->setObjectName(QStringLiteral("actionForward"));
  forward_->setShortcut(QKeySequence(Qt::ALT | Qt::Key_Right));
  forward_->setEnabled(false);
  connect(forward_, &QAction::triggered, browser_, &QTextBrowser::forward);
  connect(browser_, &QTextBrowser::forwardAvailable, forward_, &QAction::setEnabled);

  contents_ =
      bar->addAction(style()->standardIcon(QStyle::SP_DirHomeIcon), QStringLiteral("&Contents"));
  contents_->setObjectName(QStringLiteral("actionContents"));
  contents_->setShortcut(QKeySequence(Qt::ALT | Qt::Key_Home));
  connect(contents_, &QAction::triggered, this, [this] {
    if (home_.isValid()) browser_->setSource(home_, QTextDocument::HtmlResource);
  });

  auto* close = new QAction(QStringLiteral("Close"), this);
  close->setObjectName(QStringLiteral("actionClose"));
  close->setShortcuts({QKeySequence(Qt::Key_Escape), QKeySequence(Qt::CTRL | Qt::Key_W)});
  addAction(close);
  connect(close, &QAction::triggered, this, &QWidget::close);

  resize(780, 640);
}

void HelpViewer::showTopic(const QString& file, int context) {
  QUrl url = QUrl::fromLocalFile(QFileInfo(file).absoluteFilePath());
  url.setFragment(QString::number(context));
  home_ = url;
  // The file's extension says nothing about its content: name the type.
  browser_->setSource(url, QTextDocument::HtmlResource);
}

HelpViewer* HelpViewer::open(const QString& file, int context) {
  QPointer<HelpViewer>& viewer = theViewer();
  if (!viewer) {
    viewer = new HelpViewer;
    connect(qApp, &QCoreApplication::aboutToQuit, viewer, &QObject::deleteLater);
  }
  viewer->followModal(QApplication::activeModalWidget());
  viewer->showTopic(file, context);
  if (viewer->isMinimized())
    viewer->showNormal();
  else
    viewer->show();
  viewer->raise();
  viewer->activateWindow();
  return viewer;
}

HelpViewer* HelpViewer::current() { return theViewer(); }

void HelpViewer::followModal(QWidget* modal) {
  QWidget* owner = modal ? modal->window() : nullptr;
  if (owner == this || parentWidget() == owner) return;
  disconnect(ownerDone_);
  const bool wasVisible = isVisible();
  const QRect place = geometry();
  // Reparenting hides a window; it comes back where it was.
  setParent(owner, windowFlags() | Qt::Window);
  if (wasVisible) {
    setGeometry(place);
    show();
  }
  if (auto* dialog = qobject_cast<QDialog*>(owner)) {
    ownerDone_ = connect(dialog, &QDialog::finished, this, [this, dialog] {
      QWidget* next = QApplication::activeModalWidget();
      followModal(next == dialog ? nullptr : next);
    });
  }
}

}  // namespace shell
