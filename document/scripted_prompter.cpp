#include "document/scripted_prompter.h"

namespace document {

namespace {

const char* kindName(ScriptedPrompter::Kind kind) {
  switch (kind) {
    case ScriptedPrompter::Kind::Message:
      return "message box";
    case ScriptedPrompter::Kind::OpenFile:
      return "open dialog";
    case ScriptedPrompter::Kind::SaveFile:
      return "save dialog";
    case ScriptedPrompter::Kind::Folder:
      return "folder dialog";
  }
  return "?";
}

}  // namespace

ScriptedPrompter& ScriptedPrompter::answer(Answer a) {
  queue_.push_back({Kind::Message, a, {}});
  return *this;
}

ScriptedPrompter& ScriptedPrompter::pickOpen(const QString& path) {
  queue_.push_back({Kind::OpenFile, Answer::Cancel, path});
  return *this;
}

ScriptedPrompter& ScriptedPrompter::pickSave(const QString& path) {
  queue_.push_back({Kind::SaveFile, Answer::Cancel, path});
  return *this;
}

ScriptedPrompter& ScriptedPrompter::pickFolder(const QString& path) {
  queue_.push_back({Kind::Folder, Answer::Cancel, path});
  return *this;
}

QStringList ScriptedPrompter::messages() const {
  QStringList texts;
  for (const Shown& s : shown_)
    if (s.kind == Kind::Message) texts << s.text;
  return texts;
}

Answer ScriptedPrompter::ask(const QString& text, MessageStyle style, const QString& title) {
  shown_.append({Kind::Message, text, title, style, {}, {}});
  if (styleAllows(style, Answer::Ok)) return Answer::Ok;
  const Answer refused = styleAllows(style, Answer::Cancel) ? Answer::Cancel : Answer::No;
  if (queue_.empty() || queue_.front().kind != Kind::Message) {
    faults_ << QStringLiteral("message box \"%1\" met %2")
                   .arg(text, queue_.empty() ? QStringLiteral("an empty script")
                                             : QLatin1String(kindName(queue_.front().kind)));
    return refused;
  }
  const Answer a = queue_.front().answer;
  queue_.pop_front();
  if (!styleAllows(style, a)) {
    faults_ << QStringLiteral("message box \"%1\" of style %2 cannot answer %3")
                   .arg(text)
                   .arg(static_cast<int>(style))
                   .arg(static_cast<int>(a));
    return refused;
  }
  return a;
}

QString ScriptedPrompter::takePath(Kind kind, const QString& what) {
  if (queue_.empty() || queue_.front().kind != kind) {
    faults_ << QStringLiteral("%1 \"%2\" met %3")
                   .arg(QLatin1String(kindName(kind)), what,
                        queue_.empty() ? QStringLiteral("an empty script")
                                       : QLatin1String(kindName(queue_.front().kind)));
    return {};
  }
  const QString path = queue_.front().path;
  queue_.pop_front();
  return path;
}

QString ScriptedPrompter::openFile(const FileDialogRequest& request) {
  shown_.append({Kind::OpenFile, {}, request.title, MessageStyle::Ok, request, {}});
  return takePath(Kind::OpenFile, request.title);
}

QString ScriptedPrompter::saveFile(const FileDialogRequest& request) {
  shown_.append({Kind::SaveFile, {}, request.title, MessageStyle::Ok, request, {}});
  return takePath(Kind::SaveFile, request.title);
}

QString ScriptedPrompter::chooseFolder(const QString& title, const QString& initialPath) {
  shown_.append({Kind::Folder, {}, title, MessageStyle::Ok, {}, initialPath});
  return takePath(Kind::Folder, title);
}

}  // namespace document
