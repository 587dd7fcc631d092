// Workbooks and sheets. All open workbooks lie in one growable array of the application record
// and are named by index, never by pointer, since the array moves when it grows; a sheet is named
// by (book, sheet). The application record is the one root of the model's state.
#pragma once
#include <cstdint>

#include "formula/tokens.h"
#include "model/cells.h"
#include "model/names.h"
#include "model/range.h"
#include "model/styles.h"

enum SheetKind : int32_t {
  SheetModule = 6,  // held, never shown or calculated
  SheetWorksheet = 16,
  SheetChart = 32,
  SheetMacro = 64,
};
constexpr int32_t SheetWithCells = 80;  // kind & 80: worksheet or macro sheet

enum SheetFlags : uint32_t {
  SheetStandardWidth = 1 << 0,
  SheetStandardHeight = 1 << 1,
  SheetHeightByHand = 1 << 2,
  SheetGridLines = 1 << 3,
  SheetHeaders = 1 << 4,
  SheetProtected = 1 << 5,
  SheetShowFormulas = 1 << 6,
  SheetPanesFrozen = 1 << 7,
};

constexpr uint32_t MaxSheets = 32767;
constexpr uint32_t SheetNameCapacity = 32;  // 31 characters and the terminator

struct CellComment {
  uint16_t row;
  uint8_t col;
  char16_t* text;  // owned
};

struct ArrayFormula {
  Range range;
  FormulaTokens formula;  // kept empty: the cells of the block carry the formula
};

// Records owned by a sheet whose contents belong to later subsystems (autofilter, drawing
// objects, validation, conditional formats, page setup). Each stays null and zero until its
// subsystem arrives and fills it from files, and frees it in FreeSheet.
struct DrawObject;
struct FilterColumn;
struct ValidationRule;
struct ConditionalGroup;
struct PageSetup;

struct Sheet {
  char16_t name[SheetNameCapacity];
  uint16_t zoom;
  int32_t kind;
  int32_t hidden;
  uint32_t flags;
  uint16_t defaultColWidth;
  uint16_t defaultRowHeight;
  CellArray cells;
  ColumnArray columns;
  RowArray rows;
  uint16_t paneTopRow;
  uint8_t paneLeftCol;
  uint16_t frozenRow;
  uint8_t frozenCol;
  uint16_t topRow, bottomRow;  // the cells in the window: bottom and right set by the shell
  uint8_t leftCol, rightCol;
  uint16_t activeRow;
  uint8_t activeCol;
  Range selection;
  uint32_t arrayFormulaCount;
  ArrayFormula* arrayFormulas;
  uint32_t filterFlags;
  FilterColumn* filterColumns;
  uint32_t objectCount;
  DrawObject** objects;
  int32_t selectedObject;
  uint16_t nextObjectId;
  uint32_t validationCount;
  ValidationRule* validations;
  uint32_t mergeCount;
  Range* merges;
  uint32_t commentCount;
  CellComment* comments;
  uint32_t conditionalCount;
  ConditionalGroup* conditionals;
  PageSetup* pageSetup;
};

struct Workbook {
  char16_t* path;
  uint8_t biffVersion;
  uint16_t codePage;
  uint16_t fileCodePage;
  int32_t dirty;
  int32_t circularHit;
  uint32_t palette[PaletteSize];
  uint32_t nameCount;
  DefinedName* names;
  uint32_t numberFormatCount;
  NumberFormat* numberFormats;
  uint32_t xfCount;
  Xf* xfs;
  uint32_t styleCount;
  StyleRecord* styles;
  uint32_t fontCount;
  FontRecord* fonts;
  uint32_t sheetCount;
  Sheet** sheets;
  uint32_t currentSheet;
  int32_t date1904;
  void* defaultFontHandle;  // the shell's realised default font, once the shell draws cells
  int32_t showHorizontalScrollBar;
  int32_t showVerticalScrollBar;
  int32_t showSheetTabs;
  uint32_t externalBookCount;
  ExternalBook* externalBooks;
  uint32_t sheetLinkCount;
  SheetLink* sheetLinks;
  int32_t hiddenForLinks;  // opened quietly to serve links: set once LoadWorkbookForLinks loads
};

struct Application {
  uint32_t workbookCount;
  Workbook* workbooks;
  uint32_t currentBook;
  uint32_t newWorkbookCounter;  // last number given to "Classeur%d"; never goes down
};

extern Application App;

// Short-lived access; the pointers die when the workbook array or sheet array moves.
inline Workbook* GetWorkbook(uint32_t book) {
  return &App.workbooks[book];
}
inline Sheet* GetSheet(uint32_t book, uint32_t sheet) {
  return App.workbooks[book].sheets[sheet];
}
inline bool SheetHasCells(const Sheet* s) {
  return (s->kind & SheetWithCells) != 0;
}

// Values of the flags of CreateWorkbook and InsertSheet.
enum : int { NotUndoable = 0, Undoable = 1 };
enum : int { NoViewUpdate = 0, WithViewUpdate = 1 };

// Creates a workbook at the end of the array and makes it current; a null path generates
// "Classeur%d". Returns 0 on failure, leaving the array as it was. `updateView` (here and in
// InsertSheet) waits for the desktop shell, which will refresh its window; nothing reads it yet.
int CreateWorkbook(const char16_t* path, int updateView, uint32_t* book);
void CloseWorkbook(uint32_t book);
// Inserts a sheet at `position`; a null name generates one. Returns 0 with the message
// "No room to insert sheet" when the workbook holds 32767 sheets, or on lost memory. With
// `undoable` the insertion is recorded for undo and the workbook marked dirty; when the record
// can't be made, the sheet is taken out again and 0 returned.
int InsertSheet(uint32_t book, uint32_t position, const char16_t* name, int32_t kind, int undoable,
                int updateView);
// Takes the sheet at `sheet` out and frees it; the sheets behind it move down one place, with
// the local names and self links that count them. Self links on the sheet itself turn into the
// deleted state, which resolves to nothing. The readers of the sheet are not marked: a caller on
// a worksheet marks them first (PropagateDirty over the whole sheet), while links still reach it.
// Returns 0, changing nothing, for an index out of range or the only sheet of the workbook.
int DeleteSheet(uint32_t book, uint32_t sheet);
// Index of the sheet with that name (ignoring case), or -1.
int32_t FindSheetByName(uint32_t book, const char16_t* name);
// Closes every workbook and starts the application record afresh, the counter of new workbook
// names included (program exit, tests).
void CloseAllWorkbooks();
