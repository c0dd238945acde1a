#include "shell/help.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QKeySequence>
#include <QLocale>
#include <QShortcut>
#include <QWidget>
#include <utility>

#include "shell/HelpViewer.h"

namespace shell {

namespace {

struct LocaleNumber {
  QLocale::Language language;
  QLocale::Territory territory;
  uint32_t number;
};

// Windows locale numbers of the locales a desktop is commonly set to. The
// first row of a language is its main territory, used for territories the
// table does not list.
constexpr LocaleNumber kLocaleNumbers[] = {
    {QLocale::English, QLocale::UnitedStates, 1033},
    {QLocale::English, QLocale::UnitedKingdom, 2057},
    {QLocale::English, QLocale::Australia, 3081},
    {QLocale::English, QLocale::Canada, 4105},
    {QLocale::English, QLocale::NewZealand, 5129},
    {QLocale::English, QLocale::Ireland, 6153},
    {QLocale::English, QLocale::SouthAfrica, 7177},
    {QLocale::English, QLocale::Philippines, 13321},
    {QLocale::English, QLocale::India, 16393},
    {QLocale::English, QLocale::Malaysia, 17417},
    {QLocale::English, QLocale::Singapore, 18441},
    {QLocale::German, QLocale::Germany, 1031},
    {QLocale::German, QLocale::Switzerland, 2055},
    {QLocale::German, QLocale::Austria, 3079},
    {QLocale::German, QLocale::Luxembourg, 4103},
    {QLocale::German, QLocale::Liechtenstein, 5127},
    {QLocale::French, QLocale::France, 1036},
    {QLocale::French, QLocale::Belgium, 2060},
    {QLocale::French, QLocale::Canada, 3084},
    {QLocale::French, QLocale::Switzerland, 4108},
    {QLocale::French, QLocale::Luxembourg, 5132},
    {QLocale::French, QLocale::Monaco, 6156},
    {QLocale::Spanish, QLocale::Spain, 3082},
    {QLocale::Spanish, QLocale::Mexico, 2058},
    {QLocale::Spanish, QLocale::Colombia, 9226},
    {QLocale::Spanish, QLocale::Argentina, 11274},
    {QLocale::Spanish, QLocale::Chile, 13322},
    {QLocale::Spanish, QLocale::UnitedStates, 21514},
    {QLocale::Italian, QLocale::Italy, 1040},
    {QLocale::Italian, QLocale::Switzerland, 2064},
    {QLocale::Dutch, QLocale::Netherlands, 1043},
    {QLocale::Dutch, QLocale::Belgium, 2067},
    {QLocale::Portuguese, QLocale::Brazil, 1046},
    {QLocale::Portuguese, QLocale::Portugal, 2070},
    {QLocale::Swedish, QLocale::Sweden, 1053},
    {QLocale::Swedish, QLocale::Finland, 2077},
    {QLocale::Chinese, QLocale::China, 2052},
    {QLocale::Chinese, QLocale::Taiwan, 1028},
    {QLocale::Chinese, QLocale::HongKong, 3076},
    {QLocale::Chinese, QLocale::Singapore, 4100},
    {QLocale::Arabic, QLocale::SaudiArabia, 1025},
    {QLocale::Bulgarian, QLocale::AnyTerritory, 1026},
    {QLocale::Catalan, QLocale::AnyTerritory, 1027},
    {QLocale::Czech, QLocale::AnyTerritory, 1029},
    {QLocale::Danish, QLocale::AnyTerritory, 1030},
    {QLocale::Greek, QLocale::AnyTerritory, 1032},
    {QLocale::Finnish, QLocale::AnyTerritory, 1035},
    {QLocale::Hebrew, QLocale::AnyTerritory, 1037},
    {QLocale::Hungarian, QLocale::AnyTerritory, 1038},
    {QLocale::Icelandic, QLocale::AnyTerritory, 1039},
    {QLocale::Japanese, QLocale::AnyTerritory, 1041},
    {QLocale::Korean, QLocale::AnyTerritory, 1042},
    {QLocale::NorwegianBokmal, QLocale::AnyTerritory, 1044},
    {QLocale::NorwegianNynorsk, QLocale::AnyTerritory, 2068},
    {QLocale::Polish, QLocale::AnyTerritory, 1045},
    {QLocale::Romanian, QLocale::AnyTerritory, 1048},
    {QLocale::Russian, QLocale::AnyTerritory, 1049},
    {QLocale::Croatian, QLocale::AnyTerritory, 1050},
    {QLocale::Slovak, QLocale::AnyTerritory, 1051},
    {QLocale::Thai, QLocale::AnyTerritory, 1054},
    {QLocale::Turkish, QLocale::AnyTerritory, 1055},
    {QLocale::Indonesian, QLocale::AnyTerritory, 1057},
    {QLocale::Ukrainian, QLocale::AnyTerritory, 1058},
    {QLocale::Slovenian, QLocale::AnyTerritory, 1060},
    {QLocale::Estonian, QLocale::AnyTerritory, 1061},
    {QLocale::Latvian, QLocale::AnyTerritory, 1062},
    {QLocale::Lithuanian, QLocale::AnyTerritory, 1063},
    {QLocale::Persian, QLocale::AnyTerritory, 1065},
    {QLocale::Vietnamese, QLocale::AnyTerritory, 1066},
    {QLocale::Basque, QLocale::AnyTerritory, 1069},
    {QLocale::Hindi, QLocale::AnyTerritory, 1081},
    {QLocale::Malay, QLocale::AnyTerritory, 1086},
    {QLocale::Galician, QLocale::AnyTerritory, 1110},
};

constexpr uint32_t kEnglishUnitedStates = 1033;

HelpOpener& opener() {
  static HelpOpener current;
  return current;
}

HelpLookupSource& lookupSource() {
  static HelpLookupSource current;
  return current;
}

}  // namespace

QString languageFolder(uint32_t windowsLocale) {
  const QString hex = QString::number(windowsLocale, 16);
  bool ok = false;
  const qulonglong asDecimal = hex.toULongLong(&ok, 10);
  if (!ok) throw HelpError(kTypeMismatch, QStringLiteral("Type mismatch"));
  const QString digits = QString::number(asDecimal);
  return QStringLiteral("resdlls/00") + digits.left(2).right(1) + digits.right(1);
}

uint32_t windowsLocaleNumber(const QLocale& locale) {
  const LocaleNumber* languageMain = nullptr;
  for (const LocaleNumber& entry : kLocaleNumbers) {
    if (entry.language != locale.language()) continue;
    if (entry.territory == locale.territory()) return entry.number;
    if (!languageMain) languageMain = &entry;
  }
  return languageMain ? languageMain->number : kEnglishUnitedStates;
}

QString helpFilePath(const QString& programDir, uint32_t windowsLocale) {
  return programDir + QLatin1Char('/') + languageFolder(windowsLocale) + QLatin1Char('/') +
         kHelpFileName;
}

HelpLookup systemHelpLookup() {
  return {QCoreApplication::applicationDirPath(), windowsLocaleNumber(QLocale::system())};
}

void ShowHelp(QWidget* parent, document::Prompter& prompter) {
  ShowHelp(parent, prompter, kHelpContentsContext);
}

void ShowHelp(QWidget* parent, document::Prompter& prompter, int context) {
  try {
    const HelpLookup lookup = lookupSource() ? lookupSource()() : systemHelpLookup();
    const QString file = helpFilePath(lookup.programDir, lookup.windowsLocale);
    if (!QFileInfo(file).isFile()) return;
    if (opener())
      opener()(parent, file, context);
    else
      HelpViewer::open(file, context);
  } catch (const std::exception& error) {
    try {
      prompter.ask(QString::fromUtf8(error.what()), document::MessageStyle::Ok);
    } catch (...) {
    }
  } catch (...) {
  }
}

void installHelpKey(QWidget* form, document::Prompter& prompter) {
  installHelpKey(form, prompter, kHelpContentsContext);
}

void installHelpKey(QWidget* form, document::Prompter& prompter, int context) {
  // A window-wide shortcut sees F1 before the focused control does, wherever
  // the focus is, as the form's own key preview would. Two of them in one
  // window would cancel each other out as ambiguous.
  const QString name = QStringLiteral("helpKey");
  if (form->findChild<QShortcut*>(name, Qt::FindDirectChildrenOnly)) return;
  auto* key = new QShortcut(QKeySequence(Qt::Key_F1), form);
  key->setObjectName(name);
  key->setContext(Qt::WindowShortcut);
  QObject::connect(key, &QShortcut::activated, form,
                   [form, &prompter, context] { ShowHelp(form, prompter, context); });
}

HelpOpener setHelpOpener(HelpOpener replacement) {
  return std::exchange(opener(), std::move(replacement));
}

HelpLookupSource setHelpLookupSource(HelpLookupSource replacement) {
  return std::exchange(lookupSource(), std::move(replacement));
}

}  // namespace shell
