// The command table and the menus. Menus are rebuilt whole when what they show changes (the
// recent files); the state of each command is set as it is rebuilt.
#include "shell/commands.h"

#include <string>
#include <vector>

#include "base/text.h"
#include "model/undo.h"
#include "model/workbook.h"
#include "platform/platform.h"
#include "shell/entry.h"
#include "shell/frame.h"
#include "shell/open_save.h"
#include "shell/settings.h"
#include "shell/status.h"
#include "shell/view.h"

namespace {

void New(int32_t) {
  NewDefaultWorkbook();
}

void Open(int32_t) {
  OpenFileDialog();
}

void Close(int32_t) {
  CloseCurrentWorkbook();
}

void Save(int32_t) {
  if (App.workbookCount) SaveFile(App.currentBook, GetWorkbook(App.currentBook)->path, 0);
}

void SaveAs(int32_t) {
  if (App.workbookCount) SaveFileAs(App.currentBook, GetWorkbook(App.currentBook)->path);
}

void OpenRecent(int32_t id) {
  const uint32_t slot = uint32_t(id - CmdRecentFirst);
  if (!Recent.names[slot]) return;
  const std::u16string path = Recent.names[slot];
  if (!OpenFile(path.c_str(), 1)) {
    RemoveRecentFile(slot);
    RefreshMenus();
  }
}

void Quit(int32_t) {
  CloseAllAndQuit();
}

void Undo(int32_t) {
  UndoCommand();
}

// The View toggles: which flag each flips.
int32_t* ToggledFlag(int32_t id) {
  switch (id) {
    case CmdStandardBar:
      return &Options.standardBarVisible;
    case CmdFormatBar:
      return &Options.formatBarVisible;
    case CmdFormulaBar:
      return &Options.formulaBarVisible;
    default:
      return &Options.statusBarVisible;
  }
}

void Toggle(int32_t id) {
  int32_t* flag = ToggledFlag(id);
  *flag = !*flag;
  gPlatform->checkCommand(id, *flag);
  LayoutView();
  if (id == CmdStatusBar) UpdateStatusPanes();
}

struct CommandRow {
  int32_t first;
  int32_t last;
  void (*handler)(int32_t id);
};

constexpr CommandRow kCommandTable[] = {
    {CmdNew, CmdNew, New},
    {CmdOpen, CmdOpen, Open},
    {CmdClose, CmdClose, Close},
    {CmdSave, CmdSave, Save},
    {CmdSaveAs, CmdSaveAs, SaveAs},
    {CmdRecentFirst, CmdRecentLast, OpenRecent},
    {CmdQuit, CmdQuit, Quit},
    {CmdUndo, CmdUndo, Undo},
    {CmdStandardBar, CmdStatusBar, Toggle},
};

}  // namespace

int DispatchCommand(int32_t id) {
  Options.endMode = 0;
  UpdateEndPane();
  for (const CommandRow& row : kCommandTable) {
    if (id >= row.first && id <= row.last) {
      row.handler(id);
      return 1;
    }
  }
  return 0;
}

void RefreshMenus() {
  std::vector<std::u16string> recentTexts;
  for (uint32_t i = 0; i < RecentFileCount && Recent.names[i]; i++) {
    std::u16string text = u"&";
    text += char16_t(u'1' + i);
    text += u' ';
    text += Recent.names[i];
    recentTexts.push_back(text);
  }
  std::vector<MenuEntry> menu = {
      {0, 0, u"&Fichier"},
      {1, CmdNew, u"&Nouveau\tCtrl+N"},
      {1, CmdOpen, u"&Ouvrir...\tCtrl+O"},
      {1, 0, u"&Récents"},
  };
  for (size_t i = 0; i < recentTexts.size(); i++) {
    menu.push_back({2, CmdRecentFirst + int32_t(i), recentTexts[i].c_str()});
  }
  const std::vector<MenuEntry> rest = {
      {1, CmdClose, u"&Fermer"},
      {1, CmdSave, u"&Enregistrer\tCtrl+S"},
      {1, CmdSaveAs, u"Enregistrer &Sous..."},
      {1, 0, nullptr},
      {1, CmdQuit, u"&Quitter\tCtrl+Q"},
      {0, 0, u"&Modifier"},
      {1, CmdUndo, u"&Annuler\tCtrl+Z"},
      {0, 0, u"F&ormat"},
      {1, 0, u"&Programme"},
      {2, 0, u"&Barres d'outils"},
      {3, CmdStandardBar, u"&Standard"},
      {3, CmdFormatBar, u"&Format"},
      {2, CmdFormulaBar, u"Barre de &formule"},
      {2, CmdStatusBar, u"Barre d'&état"},
  };
  menu.insert(menu.end(), rest.begin(), rest.end());
  gPlatform->setMenus(menu.data(), int32_t(menu.size()));
  const bool open = App.workbookCount > 0;
  for (int32_t id : {int32_t(CmdClose), int32_t(CmdSave), int32_t(CmdSaveAs)}) {
    gPlatform->enableCommand(id, open);
  }
  for (int32_t id = CmdStandardBar; id <= CmdStatusBar; id++) {
    gPlatform->checkCommand(id, *ToggledFlag(id));
  }
}

void SetToolbars() {
  const MenuEntry standard[] = {
      {0, CmdNew, u"Nouveau"}, {0, CmdOpen, u"Ouvrir"},  {0, CmdSave, u"Enregistrer"},
      {0, 0, nullptr},         {0, CmdUndo, u"Annuler"},
  };
  gPlatform->setToolbar(BandStandardBar, standard, int32_t(std::size(standard)));
}
