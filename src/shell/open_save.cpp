// Open and save as the user meets them. The choice of a type by the filter of the Save As dialog
// decides the extension whatever was typed; templates are never overwritten by a plain save; a
// name already held by another open workbook is refused, since workbooks are told apart by leaf
// name.
#include "shell/open_save.h"

#include <string>

#include "base/alloc.h"
#include "base/message.h"
#include "base/text.h"
#include "files/open.h"
#include "model/names.h"
#include "model/workbook.h"
#include "platform/platform.h"
#include "shell/commands.h"
#include "shell/entry.h"
#include "shell/frame.h"
#include "shell/settings.h"
#include "shell/status.h"
#include "shell/view.h"

namespace {

constexpr uint32_t kPathCapacity = 260;

constexpr char16_t kOpenFilters[] =
    u"Fichiers de feuille de calcul\0*.xls;*.pxl;*.csv;*.txt;*.xlt;*.pxt\0"
    u"Fichiers Excel\0*.xls\0"
    u"Fichiers Pocket Excel\0*.pxl\0"
    u"Valeurs séparées par des virgules\0*.csv\0"
    u"Valeurs séparées par des tabulations\0*.txt\0"
    u"Modèles Excel\0*.xlt\0"
    u"Modèles Pocket Excel\0*.pxt\0";

constexpr char16_t kSaveFilters[] =
    u"Classeur Excel 97 (xls)\0*.xls\0"
    u"Classeur Excel 95 (xls)\0*.xls\0"
    u"Pocket Excel 2.0 (pxl)\0*.pxl\0"
    u"Valeurs séparées par des virgules (csv)\0*.csv\0"
    u"Valeurs séparées par des tabulations (txt)\0*.txt\0"
    u"Modèle Excel 97 (xlt)\0*.xlt\0"
    u"Modèle Pocket Excel 2.0 (pxt)\0*.pxt\0"
    u"Bitmap (bmp)\0*.bmp\0";

// By the Save As filter index, from 1: the extension appended and the BIFF version set (0 leaves
// it as it was).
struct SaveChoice {
  const char16_t* extension;
  uint8_t biffVersion;
};
constexpr SaveChoice kSaveChoices[9] = {
    {u"xls", 8}, {u"xls", 8}, {u"xls", 7}, {u"pxl", 8}, {u"csv", 8},
    {u"txt", 8}, {u"xlt", 8}, {u"pxt", 8}, {u"bmp", 0},
};
constexpr int32_t kBitmapFilter = 8;

// The Save As filter first shown for a workbook of this name.
int32_t FilterForName(uint32_t book, const char16_t* path) {
  switch (FileTypeFromName(path)) {
    case FileCsv:
      return 4;
    case FileTxt:
      return 5;
    case FilePxl:
    case FilePxt:
      return 3;
    case FileXls:
    case FileXlt:
      return GetWorkbook(book)->biffVersion == 7 ? 2 : 1;
    default:
      return 1;
  }
}

// Cuts `name` at the last "." of its file part, if there is one.
void CutExtension(std::u16string* name) {
  const size_t leaf = LeafName(name->c_str()) - name->c_str();
  const size_t dot = name->rfind(u'.');
  if (dot != std::u16string::npos && dot >= leaf) name->resize(dot);
}

bool FileExists(const char16_t* path) {
  FILE* f = std::fopen(TextToUtf8(path).c_str(), "rb");
  if (!f) return false;
  std::fclose(f);
  return true;
}

// After a workbook opens, closes or is renamed: caption, menus and the whole view.
void RefreshAfterFileChange() {
  UpdateCaption();
  RefreshMenus();
  LayoutView();
  if (App.workbookCount)
    RefreshFormulaBar();
  else
    UpdateStatusPanes();
}

}  // namespace

int32_t FindOpenWorkbook(const char16_t* path) {
  const char16_t* leaf = LeafName(path);
  for (uint32_t book = 0; book < App.workbookCount; book++) {
    if (EqualTextNoCase(LeafName(GetWorkbook(book)->path), leaf)) return int32_t(book);
  }
  return -1;
}

int OpenFile(const char16_t* path, int addToRecent) {
  const int32_t open = FindOpenWorkbook(path);
  if (open >= 0) {
    GetWorkbook(uint32_t(open))->hiddenForLinks = 0;
    App.currentBook = uint32_t(open);
    RefreshAfterFileChange();
    return 1;
  }
  // An untouched first workbook gives way to the file the user opens.
  if (App.workbookCount == 1 && !GetWorkbook(0)->dirty &&
      CompareText(GetWorkbook(0)->path, u"Classeur1") == 0 &&
      FileTypeFromName(path) != FileUnknown && FileExists(path)) {
    CloseWorkbook(0);
  }
  const uint32_t previous = App.currentBook;
  LoadReport report{};
  if (!LoadWorkbookFile(path, nullptr, &report)) {
    // The partial workbook of a failed read stays open behind the one that was current.
    if (App.workbookCount) App.currentBook = previous < App.workbookCount ? previous : 0;
    RefreshAfterFileChange();
    return 0;
  }
  if (addToRecent) NoteRecentFile(path);
  RefreshAfterFileChange();
  return 1;
}

int SaveFile(uint32_t book, const char16_t* path, int fromDialog) {
  const FileType type = FileTypeFromName(path);
  if (type == FileUnknown || ((type == FileXlt || type == FilePxt) && !fromDialog)) {
    return SaveFileAs(book, path);
  }
  if (!SaveWorkbookFile(book, path, 1)) return 0;
  RefreshMenus();
  return 1;
}

int SaveFileAs(uint32_t book, const char16_t* path) {
  std::u16string name = path;
  if (name.size() >= kPathCapacity) name.resize(kPathCapacity - 1);
  CutExtension(&name);
  int32_t filter = FilterForName(book, path);
  name += u'.';
  name += kSaveChoices[filter].extension;
  char16_t chosen[kPathCapacity];
  for (;;) {
    TextCopy(chosen, kPathCapacity, name.c_str());
    FileChooser chooser{1,      u"Enregistrer sous",   kSaveFilters, filter, nullptr,
                        chosen, int32_t(kPathCapacity)};
    if (!gPlatform->chooseFile(&chooser)) return 0;
    filter = chooser.filterIndex >= 1 && chooser.filterIndex <= 8 ? chooser.filterIndex : 1;
    name = chosen;
    if (name.size() >= 2 && name[0] == u'\\' && name[1] == u'\\') name.erase(0, 1);
    while (!name.empty() && name.back() == u'.') name.pop_back();
    CutExtension(&name);
    name += u'.';
    name += kSaveChoices[filter].extension;
    const int32_t holder = FindOpenWorkbook(name.c_str());
    if (holder >= 0 && uint32_t(holder) != book) {
      ShowMessage(
          u"Impossible d'enregistrer le fichier avec le même nom que un autre fichier ouvert",
          MessageError);
      return 0;
    }
    if (filter == kBitmapFilter) {
      const Workbook* wb = GetWorkbook(book);
      if (wb->sheets[wb->currentSheet]->kind != SheetChart) {
        ShowMessage(u"The current sheet is not a chart sheet", MessageError);
        return 0;
      }
    }
    if (!FileExists(name.c_str()) || ShowMessage(u"Fichier existe déjà.\nVoulez-vous le remplacer?",
                                                 MessageYesNo | MessageQuestion) == AnswerYes) {
      break;
    }
  }
  if (kSaveChoices[filter].biffVersion)
    GetWorkbook(book)->biffVersion = kSaveChoices[filter].biffVersion;
  if (!SaveFile(book, name.c_str(), 1)) return 0;
  if (filter == kBitmapFilter) return 1;
  char16_t* adopted = TextDuplicate(name.c_str());
  if (adopted) {
    Workbook* wb = GetWorkbook(book);
    Release(wb->path);
    wb->path = adopted;
  }
  NoteRecentFile(name.c_str());
  RefreshAfterFileChange();
  return 1;
}

int PromptSaveChanges(uint32_t book) {
  const std::u16string question =
      std::u16string(u"Voulez-vous enregistrer les changements sous le nom de ") +
      LeafName(GetWorkbook(book)->path) + u"?";
  switch (ShowMessage(question.c_str(), MessageYesNoCancel | MessageQuestion)) {
    case AnswerYes:
      // A save that did not happen (a cancelled dialog, a refused name) keeps the workbook open:
      // closing it now would lose what the user just asked to keep.
      return SaveFile(book, GetWorkbook(book)->path, 0) ? 0 : 1;
    case AnswerNo:
      return 0;
    default:
      return 1;
  }
}

int CloseCurrentWorkbook() {
  if (App.workbookCount == 0) return 1;
  const uint32_t book = App.currentBook;
  // End mode belongs to the sheet on show: it ends, and its mark goes, before any prompt.
  Options.endMode = 0;
  UpdateEndPane();
  if (GetWorkbook(book)->dirty && PromptSaveChanges(book)) return 0;
  CloseWorkbook(book);
  RefreshAfterFileChange();
  return 1;
}

void OpenFileDialog() {
  char16_t chosen[kPathCapacity] = {0};
  FileChooser chooser{0, u"Ouvrir", kOpenFilters, 1, nullptr, chosen, int32_t(kPathCapacity)};
  if (gPlatform->chooseFile(&chooser)) OpenFile(chosen, 1);
}

void UpdateCaption() {
  if (App.workbookCount == 0) {
    gPlatform->setCaption(u"Tessarel");
    return;
  }
  const std::u16string caption =
      std::u16string(u"Tessarel - ") + LeafName(GetWorkbook(App.currentBook)->path);
  gPlatform->setCaption(caption.c_str());
}
