// Step 4 of the wizard: the maps in which the feature class is found.
// Every map of the schema is offered as its folder's path, "/" and its name;
// moving one writes or deletes its FeatureMaps row at once.
//
// A string is resolved as it always was: the first folder whose Path equals
// the part before the last "/", then the first map of that folder whose Name
// equals the rest, both compared as Jet compares text. The maps and folders
// are read once when the step loads (the wizard is modal, nothing else
// changes them meanwhile) and indexed by Jet's sort keys at the first move,
// so moving tens of thousands of maps costs no search of the tables per map.
#pragma once

#include <QHash>
#include <QString>
#include <QStringList>
#include <string>
#include <unordered_map>
#include <vector>

#include "features/wizard_context.h"

namespace features {

class FeatureMaps {
 public:
  explicit FeatureMaps(WizardContext& context) : c_(context) {}

  // Every map of the schema, and the feature's maps in FeatureMaps order.
  void load();

  const QStringList& available() const { return available_; }
  // The feature's maps as loaded.
  const QStringList& loaded() const { return loaded_; }
  int selectedCount() const { return selectedCount_; }

  // The chooser's two events: whether the map may move.
  bool add(const QString& map);
  bool remove(const QString& map);

  // The check of the last step: no map, or maps with a coordinate system
  // for a feature class without one (csText: the coordinate-system box).
  QString check(const QString& csText);

 private:
  struct Folder {
    int32_t dirId = 0;
    QString path;
  };
  struct Map {
    int32_t mapId = 0, dirId = 0;
    QString name;
    QString display;
    bool hasCs = false;
  };
  void index();
  // The mapId a display string stands for; 0, after telling the user which
  // part is missing and the consequence (string 5013 or 5015), when its
  // folder or the map itself cannot be found.
  int32_t resolve(const QString& display, int consequence);

  WizardContext& c_;
  schema::Recordset rows_;  // the feature's FeatureMaps
  QStringList available_, loaded_;
  std::vector<Folder> folders_;
  std::vector<Map> maps_;
  bool indexed_ = false;
  // Jet's sort keys of paths and names, so equal means equal to FindFirst.
  std::unordered_map<std::string, int32_t> folderByPath_;        // the first folder's dirId
  std::unordered_map<std::string, int32_t> mapByFolderAndName_;  // dirId + name: the first mapId
  std::unordered_map<std::string, bool> csByName_;  // whether the first map of a name has a csfid
  QHash<QString, int32_t> mapOfDisplay_;            // what each offered string resolves to
  // The feature's rows by mapId, for removing one without a search.
  std::unordered_map<int32_t, std::vector<schema::Recordset::Bookmark>> rowsByMap_;
  QHash<QString, int> selected_;  // how often each string is chosen
  int selectedCount_ = 0;
};

}  // namespace features
