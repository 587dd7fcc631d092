// The main window on Qt Widgets: menu bar and toolbars above, the formula bar as a toolbar holding
// a line edit, and the client widget below them in which the shell paints the grid, headers and
// tabs and places the scroll bars, the corner, the tab scroller and the status bar. Every input
// is turned into one PlatformEvent for the shell's handler. The grid is painted into a backing
// image in device pixels, which the client widget then shows at the screen's pixel ratio.
#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QCursor>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QImage>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QMouseEvent>
#include <QPainter>
#include <QPushButton>
#include <QScrollBar>
#include <QSpinBox>
#include <QStyle>
#include <QTimer>
#include <QToolBar>
#include <QToolButton>
#include <cmath>
#include <cstdio>
#include <map>
#include <set>
#include <vector>

#include "platform/qt/qt_internal.h"
#include "platform/qt/qt_platform.h"

namespace {

PlatformEventHandler gHandler = nullptr;
bool gHeadless = false;

int32_t Send(PlatformEvent& e) {
  return gHandler ? gHandler(&e) : 0;
}

PlatformEvent NewEvent(PlatformEventKind kind) {
  PlatformEvent e{};
  e.kind = kind;
  return e;
}

uint32_t Modifiers(Qt::KeyboardModifiers m, Qt::MouseButtons buttons = Qt::NoButton) {
  uint32_t bits = 0;
  if (m & Qt::ShiftModifier) bits |= ModShift;
  if (m & Qt::ControlModifier) bits |= ModControl;
  if (m & Qt::AltModifier) bits |= ModAlt;
  if (buttons & Qt::LeftButton) bits |= ModButton;
  return bits;
}

// Qt's key codes in the classic virtual-key numbering the shell's tables use; 0 for keys the shell
// has no use for.
int32_t KeyCode(int key) {
  static const std::map<int, int32_t> kKeys = {
      {Qt::Key_Backspace, KeyBack},  {Qt::Key_Tab, KeyTab},
      {Qt::Key_Backtab, KeyTab},     {Qt::Key_Return, KeyReturn},
      {Qt::Key_Enter, KeyReturn},    {Qt::Key_Shift, KeyShift},
      {Qt::Key_Control, KeyControl}, {Qt::Key_Escape, KeyEscape},
      {Qt::Key_PageUp, KeyPageUp},   {Qt::Key_PageDown, KeyPageDown},
      {Qt::Key_End, KeyEnd},         {Qt::Key_Home, KeyHome},
      {Qt::Key_Left, KeyLeft},       {Qt::Key_Up, KeyUp},
      {Qt::Key_Right, KeyRight},     {Qt::Key_Down, KeyDown},
      {Qt::Key_Delete, KeyDelete},   {Qt::Key_F2, KeyF2},
      {Qt::Key_F9, KeyF9},
  };
  if ((key >= Qt::Key_0 && key <= Qt::Key_9) || (key >= Qt::Key_A && key <= Qt::Key_Z)) return key;
  if (key >= Qt::Key_F1 && key <= Qt::Key_F12) return 0x70 + (key - Qt::Key_F1);
  const auto found = kKeys.find(key);
  return found == kKeys.end() ? 0 : found->second;
}

std::set<int32_t> gKeysDown;

// Hands a key press to the shell as a key down, then, as the classic message loop does whether
// or not the key down was taken, as the character it types (Return, Tab, Esc and Backspace type
// theirs too). Returns true when the shell took either.
bool SendKey(QKeyEvent* ev, PlatformTarget target) {
  const int32_t key = KeyCode(ev->key());
  if (key) gKeysDown.insert(key);
  PlatformEvent down = NewEvent(EventKeyDown);
  down.target = target;
  down.key = key;
  down.modifiers = Modifiers(ev->modifiers());
  const bool tookKey = key && Send(down);
  const QString text = ev->text();
  if (text.size() != 1 || (ev->modifiers() & Qt::ControlModifier)) return tookKey;
  PlatformEvent typed = NewEvent(EventChar);
  typed.target = target;
  typed.ch = text.at(0).unicode();
  typed.modifiers = down.modifiers;
  return (Send(typed) != 0) || tookKey;
}

class ClientWidget;

struct Window {
  QMainWindow* main = nullptr;
  ClientWidget* client = nullptr;
  QLineEdit* edit = nullptr;
  QToolBar* bars[3] = {};  // standard, formula, format
  QScrollBar* vertical = nullptr;
  QScrollBar* horizontal = nullptr;
  QWidget* corner = nullptr;
  QWidget* tabScroller = nullptr;
  QWidget* status = nullptr;
  QLabel* statusParts[3] = {};
  std::multimap<int32_t, QAction*> actions;
  std::map<int32_t, QTimer*> timers;
  QImage backing;
};

Window* gWindow = nullptr;
Window* W();

class ClientWidget : public QWidget {
 public:
  ClientWidget() {
    setFocusPolicy(Qt::StrongFocus);
    setAttribute(Qt::WA_OpaquePaintEvent);
    setMouseTracking(true);
  }

  void PaintInto(QImage* image, const QRect& logical) {
    const qreal k = devicePixelRatioF();
    PlatformEvent e = NewEvent(EventPaint);
    e.rect = {int32_t(std::floor(logical.left() * k)), int32_t(std::floor(logical.top() * k)),
              int32_t(std::ceil((logical.right() + 1) * k)),
              int32_t(std::ceil((logical.bottom() + 1) * k))};
    DrawContext* dc = QtCreateImageContext(image);
    dc->ops->clipToRect(dc, &e.rect);
    e.dc = dc;
    if (!Send(e)) dc->ops->fillRect(dc, &e.rect, 0xC0C0C0);
    QtDeleteImageContext(dc);
  }

  QImage& Backing() {
    const qreal k = devicePixelRatioF();
    const QSize size(int(std::ceil(width() * k)), int(std::ceil(height() * k)));
    QImage& b = W()->backing;
    if (b.size() != size) {
      b = QImage(size, QImage::Format_RGB32);
      b.fill(Qt::lightGray);
      const int dotsPerMeter = int(std::lround(96 * k / 0.0254));
      b.setDotsPerMeterX(dotsPerMeter);
      b.setDotsPerMeterY(dotsPerMeter);
    }
    return b;
  }

 protected:
  void paintEvent(QPaintEvent* ev) override {
    QImage& b = Backing();
    PaintInto(&b, ev->rect());
    QPainter p(this);
    b.setDevicePixelRatio(devicePixelRatioF());
    p.drawImage(QPoint(0, 0), b);
    b.setDevicePixelRatio(1);
  }
  void resizeEvent(QResizeEvent*) override {
    PlatformEvent e = NewEvent(EventSize);
    const qreal k = devicePixelRatioF();
    e.width = int32_t(std::ceil(width() * k));
    e.height = int32_t(std::ceil(height() * k));
    Send(e);
  }
  void keyPressEvent(QKeyEvent* ev) override {
    if (!SendKey(ev, TargetGrid)) QWidget::keyPressEvent(ev);
  }
  void keyReleaseEvent(QKeyEvent* ev) override { gKeysDown.erase(KeyCode(ev->key())); }
  void Mouse(PlatformEventKind kind, QMouseEvent* ev) {
    PlatformEvent e = NewEvent(kind);
    const qreal k = devicePixelRatioF();
    e.x = int32_t(std::floor(ev->position().x() * k));
    e.y = int32_t(std::floor(ev->position().y() * k));
    e.modifiers = Modifiers(ev->modifiers(), ev->buttons());
    Send(e);
  }
  void mousePressEvent(QMouseEvent* ev) override {
    setFocus();
    if (ev->button() == Qt::LeftButton) Mouse(EventButtonDown, ev);
  }
  void mouseReleaseEvent(QMouseEvent* ev) override {
    if (ev->button() == Qt::LeftButton) Mouse(EventButtonUp, ev);
  }
  void mouseDoubleClickEvent(QMouseEvent* ev) override {
    if (ev->button() == Qt::LeftButton) Mouse(EventDoubleClick, ev);
  }
  void mouseMoveEvent(QMouseEvent* ev) override { Mouse(EventMouseMove, ev); }
  void focusInEvent(QFocusEvent*) override {
    PlatformEvent e = NewEvent(EventFocus);
    Send(e);
  }
  bool focusNextPrevChild(bool) override { return false; }  // Tab belongs to the grid
};

qreal Ratio() {
  return W()->client->devicePixelRatioF();
}

QRect ToLogical(const PlatformRect& r) {
  const qreal k = Ratio();
  const int left = int(std::floor(r.left / k)), top = int(std::floor(r.top / k));
  const int right = int(std::ceil(r.right / k)), bottom = int(std::ceil(r.bottom / k));
  return QRect(left, top, right - left, bottom - top);
}

class MainWindow : public QMainWindow {
 protected:
  void closeEvent(QCloseEvent* ev) override {
    ev->ignore();
    PlatformEvent e = NewEvent(EventClose);
    if (!gHandler) ev->accept();
    Send(e);
  }
};

// Keys typed into the formula bar go to the shell first; what it leaves, the line edit handles.
class EditFilter : public QObject {
 protected:
  bool eventFilter(QObject*, QEvent* ev) override {
    if (ev->type() == QEvent::KeyPress) return SendKey(static_cast<QKeyEvent*>(ev), TargetEditLine);
    if (ev->type() == QEvent::MouseButtonPress &&
        static_cast<QMouseEvent*>(ev)->button() == Qt::LeftButton) {
      PlatformEvent e = NewEvent(EventButtonDown);
      e.target = TargetEditLine;
      return Send(e) != 0;
    }
    if (ev->type() == QEvent::KeyRelease) {
      gKeysDown.erase(KeyCode(static_cast<QKeyEvent*>(ev)->key()));
    }
    return false;
  }
};

void ScrollAction(int32_t bar, QScrollBar* scroll, int action) {
  PlatformEvent e = NewEvent(EventScroll);
  e.bar = bar;
  switch (action) {
    case QAbstractSlider::SliderSingleStepSub:
      e.code = 0;
      break;
    case QAbstractSlider::SliderSingleStepAdd:
      e.code = 1;
      break;
    case QAbstractSlider::SliderPageStepSub:
      e.code = 2;
      break;
    case QAbstractSlider::SliderPageStepAdd:
      e.code = 3;
      break;
    case QAbstractSlider::SliderMove:
      e.code = 5;
      break;
    default:
      return;
  }
  e.position = scroll->sliderPosition();
  Send(e);
  // The shell sets the position it chose through setScrollInfo; keep the bar where it says.
}

QScrollBar* MakeScrollBar(QWidget* parent, Qt::Orientation orientation, int32_t bar) {
  QScrollBar* scroll = new QScrollBar(orientation, parent);
  scroll->setFocusPolicy(Qt::NoFocus);
  QObject::connect(scroll, &QAbstractSlider::actionTriggered, scroll,
                   [scroll, bar](int action) { ScrollAction(bar, scroll, action); });
  QObject::connect(scroll, &QAbstractSlider::sliderReleased, scroll, [scroll, bar] {
    PlatformEvent e = NewEvent(EventScroll);
    e.bar = bar;
    e.code = 4;
    e.position = scroll->sliderPosition();
    Send(e);
  });
  return scroll;
}

QWidget* MakeTabScroller(QWidget* parent) {
  QWidget* box = new QWidget(parent);
  QHBoxLayout* row = new QHBoxLayout(box);
  row->setContentsMargins(0, 0, 0, 0);
  row->setSpacing(0);
  for (int32_t code = 0; code < 2; code++) {
    QToolButton* button = new QToolButton(box);
    button->setArrowType(code == 0 ? Qt::LeftArrow : Qt::RightArrow);
    button->setFocusPolicy(Qt::NoFocus);
    button->setAutoRaise(true);
    row->addWidget(button);
    QObject::connect(button, &QToolButton::clicked, button, [code] {
      PlatformEvent e = NewEvent(EventScroll);
      e.bar = 2;
      e.code = code;
      e.position = code == 0 ? 0 : 2;  // an up-down control of range 0 to 2 resting at 1
      Send(e);
    });
  }
  return box;
}

// The status bar hands presses on any of its parts to the shell, which pops the aggregate menu.
class StatusBar : public QWidget {
 public:
  using QWidget::QWidget;

 protected:
  void mousePressEvent(QMouseEvent* ev) override {
    if (ev->button() != Qt::LeftButton) return;
    PlatformEvent e = NewEvent(EventStatusBarPressed);
    Send(e);
  }
  void mouseDoubleClickEvent(QMouseEvent* ev) override { mousePressEvent(ev); }
};

QWidget* MakeStatusBar(QWidget* parent, QLabel* parts[3]) {
  QWidget* bar = new StatusBar(parent);
  bar->setAutoFillBackground(true);
  QHBoxLayout* row = new QHBoxLayout(bar);
  row->setContentsMargins(2, 1, 2, 1);
  row->setSpacing(2);
  const QFontMetrics fm(bar->font());
  for (int i = 0; i < 3; i++) {
    parts[i] = new QLabel(bar);
    parts[i]->setFrameStyle(QFrame::Panel | QFrame::Sunken);
    row->addWidget(parts[i], i == 1 ? 1 : 0);
  }
  // Left part: the active cell's address; right part: the End mode mark.
  parts[0]->setFixedWidth(fm.horizontalAdvance(QStringLiteral("0000000")) + 6);
  parts[2]->setFixedWidth(fm.horizontalAdvance(QStringLiteral("FIN")) + 10);
  return bar;
}

Window* W() {
  if (gWindow) return gWindow;
  gWindow = new Window;
  Window* w = gWindow;
  w->main = new MainWindow;
  w->main->setWindowTitle(QStringLiteral("Tessarel"));
  w->main->setContextMenuPolicy(Qt::NoContextMenu);
  const char* names[3] = {"standard", "formula", "format"};
  for (int i = 0; i < 3; i++) {
    w->bars[i] = new QToolBar(QString::fromLatin1(names[i]), w->main);
    w->bars[i]->setObjectName(QString::fromLatin1(names[i]));
    w->bars[i]->setMovable(false);
    w->bars[i]->setFloatable(false);
    w->bars[i]->setToolButtonStyle(Qt::ToolButtonTextOnly);
    w->bars[i]->setFocusPolicy(Qt::NoFocus);
  }
  w->main->addToolBar(Qt::TopToolBarArea, w->bars[0]);
  w->main->addToolBar(Qt::TopToolBarArea, w->bars[2]);
  w->main->addToolBarBreak(Qt::TopToolBarArea);
  w->main->addToolBar(Qt::TopToolBarArea, w->bars[1]);
  w->edit = new QLineEdit;
  w->edit->setObjectName(QStringLiteral("formula"));
  w->edit->installEventFilter(new EditFilter);
  QObject::connect(w->edit, &QLineEdit::textEdited, w->edit, [] {
    PlatformEvent e = NewEvent(EventEditChanged);
    e.target = TargetEditLine;
    Send(e);
  });
  w->bars[1]->addWidget(w->edit);
  w->client = new ClientWidget;
  w->main->setCentralWidget(w->client);
  w->vertical = MakeScrollBar(w->client, Qt::Vertical, 0);
  w->horizontal = MakeScrollBar(w->client, Qt::Horizontal, 1);
  w->corner = new QWidget(w->client);
  w->corner->setAutoFillBackground(true);
  w->tabScroller = MakeTabScroller(w->client);
  w->status = MakeStatusBar(w->client, w->statusParts);
  for (QWidget* child : {static_cast<QWidget*>(w->vertical), static_cast<QWidget*>(w->horizontal),
                         w->corner, w->tabScroller, w->status}) {
    child->setGeometry(0, 0, 0, 0);
  }
  w->main->resize(960, 640);
  return w;
}

// Platform functions ------------------------------------------------------------------------------

int32_t ScreenDpi() {
  return int32_t(std::lround(96 * Ratio()));
}

void Invalidate(const PlatformRect* r) {
  if (r) {
    W()->client->update(ToLogical(*r));
  } else {
    W()->client->update();
  }
}

void Update() {
  W()->client->repaint();
}

void ClientSize(int32_t* width, int32_t* height) {
  const qreal k = Ratio();
  *width = int32_t(std::ceil(W()->client->width() * k));
  *height = int32_t(std::ceil(W()->client->height() * k));
}

void SetCaption(const char16_t* text) {
  W()->main->setWindowTitle(ToQString(text));
}

int32_t BarsHeight() {
  return 0;  // the bands stand above the client widget, outside the shell's coordinates
}

void SetChildGeometry(PlatformChild child, const PlatformRect* r, int32_t visible) {
  Window* w = W();
  QWidget* widget = nullptr;
  switch (child) {
    case ChildVerticalBar:
      widget = w->vertical;
      break;
    case ChildHorizontalBar:
      widget = w->horizontal;
      break;
    case ChildCorner:
      widget = w->corner;
      break;
    case ChildTabScroller:
      widget = w->tabScroller;
      break;
    case ChildStatusBar:
      widget = w->status;
      break;
    default:
      return;  // the edit line lives in the formula band
  }
  widget->setGeometry(ToLogical(*r));
  widget->setVisible(visible && r->right > r->left && r->bottom > r->top);
}

int32_t ScrollBarSize() {
  return int32_t(
      std::lround(W()->client->style()->pixelMetric(QStyle::PM_ScrollBarExtent) * Ratio()));
}

int32_t StatusBarHeight() {
  return int32_t(std::lround(W()->status->sizeHint().height() * Ratio()));
}

void SetScrollInfo(int32_t bar, int32_t minimum, int32_t maximum, int32_t page, int32_t position) {
  QScrollBar* scroll = bar == 0 ? W()->vertical : W()->horizontal;
  const QSignalBlocker block(scroll);
  scroll->setRange(minimum, std::max(minimum, maximum - std::max(page, 1) + 1));
  scroll->setPageStep(std::max(page, 1));
  scroll->setSingleStep(1);
  scroll->setValue(position);
}

void SetStatusText(int32_t part, const char16_t* text) {
  if (part >= 0 && part < 3) W()->statusParts[part]->setText(ToQString(text));
}

void EnableCommand(int32_t command, int32_t enabled) {
  const auto range = W()->actions.equal_range(command);
  for (auto i = range.first; i != range.second; ++i) i->second->setEnabled(enabled);
}

void CheckCommand(int32_t command, int32_t checked) {
  const auto range = W()->actions.equal_range(command);
  for (auto i = range.first; i != range.second; ++i) {
    i->second->setCheckable(true);
    i->second->setChecked(checked);
  }
}

int32_t PopupMenu(const MenuEntry* entries, int32_t count, int32_t checked) {
  if (gHeadless) return 0;
  QMenu menu;
  for (int32_t i = 0; i < count; i++) {
    QAction* action = menu.addAction(ToQString(entries[i].text));
    action->setData(entries[i].command);
    action->setCheckable(true);
    action->setChecked(entries[i].command == checked);
  }
  const QAction* chosen = menu.exec(QCursor::pos());
  return chosen ? chosen->data().toInt() : 0;
}

void SetFocusGrid() {
  W()->client->setFocus();
}

void RequestQuit(int32_t code) {
  QCoreApplication::exit(code);
}

void SetTimer(int32_t id, int32_t milliseconds) {
  QTimer*& timer = W()->timers[id];
  if (!timer) {
    timer = new QTimer(W()->client);
    QObject::connect(timer, &QTimer::timeout, timer, [id] {
      PlatformEvent e = NewEvent(EventTimer);
      e.timerId = id;
      Send(e);
    });
  }
  timer->start(milliseconds);
}

void KillTimer(int32_t id) {
  const auto found = W()->timers.find(id);
  if (found != W()->timers.end()) found->second->stop();
}

void SetCapture() {
  if (!gHeadless) W()->client->grabMouse();
}

void ReleaseCapture() {
  if (!gHeadless) W()->client->releaseMouse();
}

int32_t KeyState(int32_t key) {
  const Qt::KeyboardModifiers m = QGuiApplication::queryKeyboardModifiers();
  if (key == KeyShift) return (m & Qt::ShiftModifier) != 0;
  if (key == KeyControl) return (m & Qt::ControlModifier) != 0;
  return gKeysDown.count(key) != 0;
}

void EditSetText(const char16_t* text, int32_t length) {
  const QSignalBlocker block(W()->edit);
  W()->edit->setText(ToQString(text, length));
}

int32_t EditGetText(char16_t* buffer, int32_t capacity) {
  const QString text = W()->edit->text();
  if (capacity > 0) {
    const int32_t n = std::min<int32_t>(int32_t(text.size()), capacity - 1);
    for (int32_t i = 0; i < n; i++) buffer[i] = text.at(i).unicode();
    buffer[n] = 0;
  }
  return int32_t(text.size());
}

void EditSetSelection(int32_t start, int32_t end) {
  W()->edit->setSelection(start, end - start);
}

void EditGetSelection(int32_t* start, int32_t* end) {
  QLineEdit* edit = W()->edit;
  if (edit->hasSelectedText()) {
    *start = edit->selectionStart();
    *end = edit->selectionEnd();
  } else {
    *start = *end = edit->cursorPosition();
  }
}

void EditReplaceSelection(const char16_t* text, int32_t length) {
  W()->edit->insert(ToQString(text, length));
}

void EditFocus() {
  W()->edit->setFocus();
}

int32_t MessageBoxQt(const char16_t* text, const char16_t* caption, uint32_t flags) {
  const QString message = ToQString(text);
  const uint32_t buttons = flags & 0xF;
  if (gHeadless) {
    std::fprintf(stderr, "%s\n", message.toUtf8().constData());
    return buttons == MbOk ? IdOk : buttons == MbYesNo ? IdNo : IdCancel;
  }
  QMessageBox::Icon icon = QMessageBox::NoIcon;
  switch (flags & 0xF0) {
    case MbIconError:
      icon = QMessageBox::Critical;
      break;
    case MbIconQuestion:
      icon = QMessageBox::Question;
      break;
    case MbIconWarning:
      icon = QMessageBox::Warning;
      break;
    case MbIconInformation:
      icon = QMessageBox::Information;
      break;
    default:
      break;
  }
  struct Choice {
    uint32_t set;
    QMessageBox::StandardButtons buttons;
  };
  static const Choice kChoices[] = {
      {MbOk, QMessageBox::Ok},
      {MbOkCancel, QMessageBox::Ok | QMessageBox::Cancel},
      {MbYesNoCancel, QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel},
      {MbYesNo, QMessageBox::Yes | QMessageBox::No},
      {MbRetryCancel, QMessageBox::Retry | QMessageBox::Cancel},
  };
  QMessageBox::StandardButtons set = QMessageBox::Ok;
  for (const Choice& c : kChoices) {
    if (c.set == buttons) set = c.buttons;
  }
  QMessageBox box(icon, ToQString(caption), message, set, W()->main);
  if (flags & MbDefaultButton2) {
    const QList<QAbstractButton*> list = box.buttons();
    if (list.size() > 1) box.setDefaultButton(qobject_cast<QPushButton*>(list.at(1)));
  }
  switch (box.exec()) {
    case QMessageBox::Ok:
      return IdOk;
    case QMessageBox::Yes:
      return IdYes;
    case QMessageBox::No:
      return IdNo;
    case QMessageBox::Retry:
      return IdRetry;
    default:
      return IdCancel;
  }
}

struct Filter {
  QString label;
  QStringList patterns;
};

std::vector<Filter> ParseFilters(const char16_t* pairs) {
  std::vector<Filter> filters;
  while (pairs && *pairs) {
    Filter f;
    f.label = ToQString(pairs);
    pairs += f.label.size() + 1;
    f.patterns = ToQString(pairs).split(QLatin1Char(';'), Qt::SkipEmptyParts);
    pairs += std::char_traits<char16_t>::length(pairs) + 1;
    filters.push_back(f);
  }
  return filters;
}

int32_t ChooseFile(FileChooser* chooser) {
  if (gHeadless) return 0;
  const std::vector<Filter> filters = ParseFilters(chooser->filters);
  QStringList names;
  for (const Filter& f : filters)
    names << f.label + QStringLiteral(" (") + f.patterns.join(' ') + ')';
  QFileDialog dialog(W()->main, ToQString(chooser->title), ToQString(chooser->folder));
  dialog.setOption(QFileDialog::DontUseNativeDialog);
  dialog.setOption(QFileDialog::DontConfirmOverwrite);
  dialog.setAcceptMode(chooser->save ? QFileDialog::AcceptSave : QFileDialog::AcceptOpen);
  dialog.setFileMode(chooser->save ? QFileDialog::AnyFile : QFileDialog::ExistingFile);
  dialog.setNameFilters(names);
  const int32_t first = chooser->filterIndex >= 1 ? chooser->filterIndex : 1;
  if (first <= names.size()) dialog.selectNameFilter(names.at(first - 1));
  if (chooser->path && chooser->path[0]) dialog.selectFile(ToQString(chooser->path));
  if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return 0;
  const QString path = dialog.selectedFiles().first();
  int32_t index = int32_t(names.indexOf(dialog.selectedNameFilter())) + 1;
  // A name typed with an extension that another filter lists picks that filter, as the file
  // choosers of this desktop do: typing "book.csv" saves comma-separated values.
  const QString leaf = path.section('/', -1);
  const int dot = leaf.lastIndexOf('.');
  if (chooser->save && dot > 0) {
    const QString pattern = QStringLiteral("*") + leaf.mid(dot);
    const bool chosenFits =
        index >= 1 && filters[index - 1].patterns.contains(pattern, Qt::CaseInsensitive);
    for (size_t i = 0; i < filters.size() && !chosenFits; i++) {
      if (filters[i].patterns.size() == 1 &&
          filters[i].patterns.contains(pattern, Qt::CaseInsensitive)) {
        index = int32_t(i) + 1;
        break;
      }
    }
  }
  chooser->filterIndex = index;
  const int32_t n = std::min<int32_t>(int32_t(path.size()), chooser->pathCapacity - 1);
  for (int32_t i = 0; i < n; i++) chooser->path[i] = path.at(i).unicode();
  chooser->path[n] = 0;
  return 1;
}

int32_t RunDialog(DialogSpec* spec) {
  if (gHeadless) return 0;
  QDialog dialog(W()->main);
  dialog.setWindowTitle(ToQString(spec->title));
  QFormLayout* form = new QFormLayout(&dialog);
  std::vector<QWidget*> inputs(size_t(spec->fieldCount), nullptr);
  for (int32_t i = 0; i < spec->fieldCount; i++) {
    DialogField& f = spec->fields[i];
    const QString label = ToQString(f.label);
    QWidget* input = nullptr;
    switch (f.kind) {
      case FieldLabel:
        form->addRow(new QLabel(label));
        continue;
      case FieldText: {
        QLineEdit* edit = new QLineEdit(ToQString(f.text));
        edit->setMaxLength(std::max(0, f.capacity - 1));
        input = edit;
        break;
      }
      case FieldNumber: {
        QSpinBox* spin = new QSpinBox;
        spin->setRange(f.minimum, f.maximum);
        spin->setValue(f.number);
        input = spin;
        break;
      }
      case FieldCheck: {
        QCheckBox* check = new QCheckBox(label);
        check->setChecked(f.number);
        form->addRow(check);
        inputs[size_t(i)] = check;
        continue;
      }
      case FieldChoice:
      case FieldList: {
        QStringList items;
        for (int32_t c = 0; c < f.choiceCount; c++) items << ToQString(f.choices[c]);
        if (f.kind == FieldChoice) {
          QComboBox* combo = new QComboBox;
          combo->addItems(items);
          combo->setCurrentIndex(f.number);
          input = combo;
        } else {
          QListWidget* list = new QListWidget;
          list->addItems(items);
          list->setCurrentRow(f.number);
          input = list;
        }
        break;
      }
    }
    form->addRow(label, input);
    inputs[size_t(i)] = input;
  }
  QDialogButtonBox* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
  form->addRow(buttons);
  QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
  QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
  if (dialog.exec() != QDialog::Accepted) return 0;
  for (int32_t i = 0; i < spec->fieldCount; i++) {
    DialogField& f = spec->fields[i];
    QWidget* input = inputs[size_t(i)];
    if (auto* edit = qobject_cast<QLineEdit*>(input)) {
      const QString text = edit->text();
      const int32_t n = std::min<int32_t>(int32_t(text.size()), f.capacity - 1);
      for (int32_t c = 0; c < n; c++) f.text[c] = text.at(c).unicode();
      if (f.capacity > 0) f.text[n] = 0;
    } else if (auto* spin = qobject_cast<QSpinBox*>(input)) {
      f.number = spin->value();
    } else if (auto* check = qobject_cast<QCheckBox*>(input)) {
      f.number = check->isChecked();
    } else if (auto* combo = qobject_cast<QComboBox*>(input)) {
      f.number = combo->currentIndex();
    } else if (auto* list = qobject_cast<QListWidget*>(input)) {
      f.number = list->currentRow();
    }
  }
  return 1;
}

QAction* MakeAction(const MenuEntry& entry, QObject* parent) {
  const QString text = ToQString(entry.text);
  const int tab = text.indexOf('\t');
  QAction* action = new QAction(tab < 0 ? text : text.left(tab), parent);
  if (tab >= 0) {
    action->setShortcut(QKeySequence(text.mid(tab + 1)));
    action->setShortcutContext(Qt::ApplicationShortcut);
  }
  const int32_t command = entry.command;
  QObject::connect(action, &QAction::triggered, action, [command] {
    PlatformEvent e = NewEvent(EventCommand);
    e.command = command;
    Send(e);
  });
  W()->actions.emplace(command, action);
  return action;
}

void ForgetActions(QWidget* owner) {
  auto& actions = W()->actions;
  for (auto i = actions.begin(); i != actions.end();) {
    QObject* parent = i->second->parent();
    while (parent && parent != owner) parent = parent->parent();
    i = parent ? actions.erase(i) : std::next(i);
  }
}

void SetMenus(const MenuEntry* entries, int32_t count) {
  QMenuBar* bar = W()->main->menuBar();
  ForgetActions(bar);
  bar->clear();
  QMenu* menus[4] = {};
  for (int32_t i = 0; i < count; i++) {
    const MenuEntry& e = entries[i];
    const int32_t depth = std::clamp(e.depth, 0, 3);
    if (depth == 0) {
      menus[0] = bar->addMenu(ToQString(e.text));
      continue;
    }
    QMenu* parent = menus[depth - 1];
    if (!parent) continue;
    if (!e.text) {
      parent->addSeparator();
    } else if (e.command == 0) {
      menus[depth] = parent->addMenu(ToQString(e.text));
    } else {
      parent->addAction(MakeAction(e, parent));
    }
  }
}

QToolBar* Band(PlatformBand band) {
  switch (band) {
    case BandStandardBar:
      return W()->bars[0];
    case BandFormulaBar:
      return W()->bars[1];
    default:
      return W()->bars[2];
  }
}

void SetToolbar(PlatformBand band, const MenuEntry* entries, int32_t count) {
  QToolBar* bar = Band(band);
  ForgetActions(bar);
  bar->clear();
  for (int32_t i = 0; i < count; i++) {
    if (!entries[i].text) {
      bar->addSeparator();
    } else {
      bar->addAction(MakeAction(entries[i], bar));
    }
  }
}

void ShowBand(PlatformBand band, int32_t visible) {
  QToolBar* bar = Band(band);
  bar->setVisible(visible && !bar->actions().isEmpty());
}

int32_t Run(PlatformEventHandler handler) {
  gHandler = handler;
  W()->main->show();
  W()->client->setFocus();
  return QApplication::exec();
}

}  // namespace

void QtFillWindowTable(Platform* p) {
  p->invalidate = Invalidate;
  p->update = Update;
  p->clientSize = ClientSize;
  p->setCaption = SetCaption;
  p->barsHeight = BarsHeight;
  p->setChildGeometry = SetChildGeometry;
  p->scrollBarSize = ScrollBarSize;
  p->setScrollInfo = SetScrollInfo;
  p->setStatusText = SetStatusText;
  p->enableCommand = EnableCommand;
  p->checkCommand = CheckCommand;
  p->setFocusGrid = SetFocusGrid;
  p->requestQuit = RequestQuit;
  p->setTimer = SetTimer;
  p->killTimer = KillTimer;
  p->setCapture = SetCapture;
  p->releaseCapture = ReleaseCapture;
  p->keyState = KeyState;
  p->editSetText = EditSetText;
  p->editGetText = EditGetText;
  p->editSetSelection = EditSetSelection;
  p->editGetSelection = EditGetSelection;
  p->editReplaceSelection = EditReplaceSelection;
  p->editFocus = EditFocus;
  p->messageBox = MessageBoxQt;
  p->chooseFile = ChooseFile;
  p->runDialog = RunDialog;
  p->run = Run;
  p->setMenus = SetMenus;
  p->setToolbar = SetToolbar;
  p->showBand = ShowBand;
  p->statusBarHeight = StatusBarHeight;
  p->popupMenu = PopupMenu;
  p->screenDpiX = ScreenDpi;
  p->screenDpiY = ScreenDpi;
}

int32_t QtDeliver(PlatformEvent& event) {
  return Send(event);
}

void QtSetHandler(PlatformEventHandler handler) {
  gHandler = handler;
}

void QtSetHeadless(int headless) {
  gHeadless = headless != 0;
}

int QtRenderWindow(int32_t width, int32_t height, QImage* out, std::vector<QRect>* textBoxes) {
  Window* w = W();
  const qreal k = w->client->devicePixelRatioF();
  w->main->setAttribute(Qt::WA_DontShowOnScreen);
  w->main->show();
  w->main->resize(int(std::ceil(width / k)), int(std::ceil(height / k)));
  QCoreApplication::processEvents();
  QCoreApplication::processEvents();
  std::vector<QRect> drawn;
  QtRecordTextBoxes(&drawn);
  *out = w->main->grab().toImage().convertToFormat(QImage::Format_RGB32);
  QtRecordTextBoxes(nullptr);
  if (textBoxes) {
    textBoxes->clear();
    const QPoint origin = w->client->mapTo(w->main, QPoint(0, 0)) * k;
    for (const QRect& box : drawn) textBoxes->push_back(box.translated(origin));
    auto add = [&](QWidget* widget) {
      if (!widget->isVisible()) return;
      const QPoint at = widget->mapTo(w->main, QPoint(0, 0));
      textBoxes->push_back(QRect(at * k, widget->size() * k));
    };
    add(w->main->menuBar());
    for (QToolBar* bar : w->bars) add(bar);
    for (QLabel* part : w->statusParts) add(part);
  }
  return !out->isNull();
}
