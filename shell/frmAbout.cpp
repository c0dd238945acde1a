#include "shell/frmAbout.h"

#include <QProcess>
#include <QStandardPaths>
#include <QSysInfo>

#include "ui_frmAbout.h"

namespace shell {

frmAbout::frmAbout(document::Prompter& prompter, QWidget* parent)
    : QDialog(parent),
      ui_(std::make_unique<Ui::frmAbout>()),
      prompter_(prompter),
      finder_([](const QString& name) { return QStandardPaths::findExecutable(name); }),
      starter_([](const QString& program) { return QProcess::startDetached(program, {}); }) {
  ui_->setupUi(this);
  ui_->lblVersion->setText(ui_->lblVersion->text().arg(version()));
  connect(ui_->cmdOK, &QPushButton::clicked, this, &QDialog::accept);
  connect(ui_->cmdSysInfo, &QPushButton::clicked, this, &frmAbout::showSystemInfo);
}

frmAbout::~frmAbout() = default;

QString frmAbout::version() { return QStringLiteral(VANTOR_VERSION); }

QStringList frmAbout::systemInfoTools() {
  // Programs whose whole purpose is describing the machine come before the
  // desktop's process monitor, which shows less of it.
  return {QStringLiteral("hardinfo2"), QStringLiteral("hardinfo"), QStringLiteral("kinfocenter"),
          QStringLiteral("gnome-system-monitor")};
}

QString frmAbout::systemInfoProgram(const ProgramFinder& find) {
  for (const QString& name : systemInfoTools()) {
    const QString path = find(name);
    if (!path.isEmpty()) return path;
  }
  return {};
}

QString frmAbout::systemFacts() {
  const QStringList lines{
      tr("Operating system: %1").arg(QSysInfo::prettyProductName()),
      tr("Kernel: %1 %2").arg(QSysInfo::kernelType(), QSysInfo::kernelVersion()),
      tr("Architecture: %1").arg(QSysInfo::currentCpuArchitecture()),
      tr("Host name: %1").arg(QSysInfo::machineHostName()),
      tr("Qt version: %1").arg(QString::fromLatin1(qVersion())),
  };
  return lines.join(QLatin1Char('\n'));
}

void frmAbout::showSystemInfo() {
  const QString program = systemInfoProgram(finder_);
  if (!program.isEmpty() && starter_(program)) return;
  prompter_.ask(systemFacts(), document::MessageStyle::OkInformation);
}

}  // namespace shell
