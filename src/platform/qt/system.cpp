// The rest of the Qt platform table: fonts, clipboard, the settings file, the local socket that
// hands a second start's command line to the running instance, the locale and the clock; and the
// application set-up that pins fonts and style so that every machine shows the same pixels.
#include <QApplication>
#include <QClipboard>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFont>
#include <QLocalServer>
#include <QLocalSocket>
#include <QMimeData>
#include <QStandardPaths>
#include <QStyle>
#include <QStyleFactory>
#include <cstdlib>
#include <cstring>

#include "base/alloc.h"
#include "files/profile.h"
#include "platform/qt/qt_internal.h"
#include "platform/qt/qt_platform.h"

namespace {

constexpr char kPrivateFormat[] = "application/x-tessarel";

void ClipboardSetText(const char16_t* text, int32_t length) {
  QGuiApplication::clipboard()->setText(ToQString(text, length));
}

char16_t* ClipboardGetText() {
  const QString text = QGuiApplication::clipboard()->text();
  if (text.isEmpty()) return nullptr;
  auto* copy = static_cast<char16_t*>(Allocate((size_t(text.size()) + 1) * sizeof(char16_t)));
  if (!copy) return nullptr;
  std::memcpy(copy, text.utf16(), size_t(text.size()) * sizeof(char16_t));
  return copy;
}

void ClipboardSetPrivate(const uint8_t* bytes, int32_t length) {
  auto* data = new QMimeData;
  data->setData(QLatin1String(kPrivateFormat),
                QByteArray(reinterpret_cast<const char*>(bytes), length));
  QGuiApplication::clipboard()->setMimeData(data);
}

int32_t ClipboardGetPrivate(uint8_t** bytes) {
  const QMimeData* data = QGuiApplication::clipboard()->mimeData();
  if (!data || !data->hasFormat(QLatin1String(kPrivateFormat))) return 0;
  const QByteArray block = data->data(QLatin1String(kPrivateFormat));
  *bytes = static_cast<uint8_t*>(Allocate(size_t(block.size())));
  if (!*bytes) return 0;
  std::memcpy(*bytes, block.constData(), size_t(block.size()));
  return int32_t(block.size());
}

// The settings file: "Tessarel/Tessarel.ini" in the user's configuration folder, made when first
// written.
std::u16string SettingsPath() {
  const QString folder =
      QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + "/Tessarel";
  const QString path = folder + "/Tessarel.ini";
  return std::u16string(reinterpret_cast<const char16_t*>(path.utf16()), size_t(path.size()));
}

int32_t SettingsRead(const char16_t* section, const char16_t* key, char16_t* buffer,
                     int32_t capacity) {
  return ReadProfileValue(section, key, buffer, uint32_t(std::max(capacity, 0)),
                          SettingsPath().c_str());
}

void SettingsWrite(const char16_t* section, const char16_t* key, const char16_t* value) {
  const std::u16string path = SettingsPath();
  const QString file = QString::fromStdU16String(path);
  if (!QFile::exists(file)) {
    QDir().mkpath(file.section('/', 0, -2));
    QFile make(file);
    if (!make.open(QIODevice::WriteOnly)) return;
  }
  WriteProfileString(section, key, value, path.c_str());
}

void SettingsRemoveSection(const char16_t* section) {
  RemoveProfileSection(section, SettingsPath().c_str());
}

void SettingsFlush() {}  // every write goes to the file at once

const char* LocaleTag() {
  for (const char* name : {"LC_ALL", "LC_NUMERIC", "LANG"}) {
    const char* value = std::getenv(name);
    if (value && *value) return value;
  }
  return nullptr;
}

// One instance per user and display session: a local socket named after the user. A hand-over is
// a 4-byte length, then the command line in UTF-16; the running side answers one byte once it has
// kept a copy, and opens the file from its own event loop afterwards.
QString SocketName(const char* name) {
  const char* user = std::getenv("USER");
  return QString::fromUtf8(name) + '-' + QString::fromUtf8(user ? user : "user");
}

QLocalServer* gServer = nullptr;

void Receive(QLocalSocket* socket) {
  QByteArray* pending = new QByteArray;
  QObject::connect(socket, &QLocalSocket::readyRead, socket, [socket, pending] {
    pending->append(socket->readAll());
    if (pending->size() < 4) return;
    uint32_t length = 0;
    std::memcpy(&length, pending->constData(), 4);
    if (length > (1u << 20)) {
      socket->abort();
      return;
    }
    if (uint32_t(pending->size()) < 4 + length) return;
    const QString text = QString::fromUtf16(
        reinterpret_cast<const char16_t*>(pending->constData() + 4), qsizetype(length / 2));
    pending->clear();
    socket->write("1", 1);
    socket->flush();
    QMetaObject::invokeMethod(
        qApp,
        [text] {
          PlatformEvent e{};
          e.kind = EventHandOver;
          e.text = reinterpret_cast<const char16_t*>(text.utf16());
          QtDeliver(e);
        },
        Qt::QueuedConnection);
  });
  QObject::connect(socket, &QLocalSocket::disconnected, socket, [socket, pending] {
    delete pending;
    socket->deleteLater();
  });
}

int32_t InstanceClaim(const char* name) {
  const QString socket = SocketName(name);
  {
    QLocalSocket probe;
    probe.connectToServer(socket);
    if (probe.waitForConnected(500)) return 0;
  }
  QLocalServer::removeServer(socket);  // a file left by an instance that crashed
  gServer = new QLocalServer(qApp);
  gServer->setSocketOptions(QLocalServer::UserAccessOption);
  if (!gServer->listen(socket)) return 1;  // run alone rather than not at all
  QObject::connect(gServer, &QLocalServer::newConnection, gServer, [] {
    while (QLocalSocket* s = gServer->nextPendingConnection()) Receive(s);
  });
  return 1;
}

int32_t InstanceSend(const char* name, const char16_t* text) {
  QLocalSocket socket;
  socket.connectToServer(SocketName(name));
  if (!socket.waitForConnected(2000)) return 0;
  const uint32_t length = uint32_t(std::char_traits<char16_t>::length(text) * 2);
  QByteArray block(reinterpret_cast<const char*>(&length), 4);
  block.append(reinterpret_cast<const char*>(text), length);
  socket.write(block);
  if (!socket.waitForBytesWritten(2000)) return 0;
  while (socket.bytesAvailable() < 1) {
    if (!socket.waitForReadyRead(5000)) return 0;
  }
  return socket.read(1) == "1";
}

void LocalTime(PlatformTime* out) {
  const QDateTime now = QDateTime::currentDateTime();
  const QDate d = now.date();
  const QTime t = now.time();
  *out = {d.year(), d.month(), d.day(), t.hour(), t.minute(), t.second(), t.msec()};
}

int64_t Milliseconds() {
  static QElapsedTimer clock = [] {
    QElapsedTimer c;
    c.start();
    return c;
  }();
  return clock.elapsed();
}

Platform MakeTable() {
  Platform p{};
  p.createFont = QtCreateFont;
  p.deleteFont = QtDeleteFont;
  p.fontMetrics = QtFontMetrics;
  p.defaultFont = QtDefaultFont;
  p.clipboardSetText = ClipboardSetText;
  p.clipboardGetText = ClipboardGetText;
  p.clipboardSetPrivate = ClipboardSetPrivate;
  p.clipboardGetPrivate = ClipboardGetPrivate;
  p.settingsRead = SettingsRead;
  p.settingsWrite = SettingsWrite;
  p.settingsRemoveSection = SettingsRemoveSection;
  p.settingsFlush = SettingsFlush;
  p.localeTag = LocaleTag;
  p.instanceClaim = InstanceClaim;
  p.instanceSend = InstanceSend;
  p.localTime = LocalTime;
  p.milliseconds = Milliseconds;
  QtFillWindowTable(&p);
  return p;
}

}  // namespace

const Platform* QtPlatform() {
  static const Platform table = MakeTable();
  return &table;
}

void QtPrepareApplication() {
  for (const char* face : {"Helvetica", "Arial", "Tahoma", "MS Sans Serif", "Sans Serif", "Sans"}) {
    QFont::insertSubstitutions(QString::fromLatin1(face),
                               {QStringLiteral("Liberation Sans"), QStringLiteral("DejaVu Sans")});
  }
  QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
  QFont font(QStringLiteral("Liberation Sans"));
  font.setFamilies({QStringLiteral("Liberation Sans"), QStringLiteral("DejaVu Sans")});
  font.setPixelSize(13);
  font.setKerning(false);
  font.setStyleStrategy(QFont::NoAntialias);
  QApplication::setFont(font);
  QApplication::setPalette(QApplication::style()->standardPalette());
}
