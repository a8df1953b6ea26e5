#include "App/SingleInstance.h"

#include <unistd.h>

#include <QLocalServer>
#include <QLocalSocket>
#include <QStandardPaths>

#include <spdlog/spdlog.h>

namespace orvan::ui {

namespace {

constexpr char kAcknowledgement[] = "ok\n";

bool anEditorAnswersOn(const QString& serverName) {
  QLocalSocket probe;
  probe.connectToServer(serverName);
  return probe.waitForConnected(500);
}

}  // namespace

QString editorInstanceServerName() {
  // In the user's own runtime folder (mode 0700, checked by Qt), not in the shared temporary
  // folder, where another account could put a socket first and collect forwarded sign-in links.
  const QString runtime = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
  if (!runtime.isEmpty())
    return runtime + QStringLiteral("/orvan-usd-editor.socket");
  return QStringLiteral("orvan-usd-editor-%1").arg(static_cast<qulonglong>(::getuid()));
}

bool forwardURLToRunningEditor(const QString& serverName, const QString& url, int timeoutMs) {
  QLocalSocket socket;
  socket.connectToServer(serverName);
  if (!socket.waitForConnected(timeoutMs))
    return false;
  socket.write(url.toUtf8() + '\n');
  if (!socket.waitForBytesWritten(timeoutMs))
    return false;
  // Wait for the running editor to say it has the link; only then may this launch end.
  QByteArray answer;
  while (!answer.contains('\n')) {
    if (!socket.waitForReadyRead(timeoutMs))
      return false;
    answer += socket.readAll();
  }
  return answer == kAcknowledgement;
}

URLForwardingServer::URLForwardingServer(QString serverName, std::function<void(QString)> onURL,
                                         QObject* parent)
    : QObject(parent),
      serverName_(std::move(serverName)),
      onURL_(std::move(onURL)),
      server_(new QLocalServer(this)) {
  server_->setSocketOptions(QLocalServer::UserAccessOption);
  connect(server_, &QLocalServer::newConnection, this, &URLForwardingServer::acceptConnections);
}

URLForwardingServer::~URLForwardingServer() = default;

bool URLForwardingServer::isListening() const {
  return server_->isListening();
}

URLForwardingServer::ListenResult URLForwardingServer::listen() {
  // Ask first: with access options the socket is bound elsewhere and moved into place, which
  // would silently take the name from a running editor.
  if (anEditorAnswersOn(serverName_))
    return ListenResult::anotherEditorIsRunning;
  // Nobody answers: whatever is left under the name belongs to an editor that did not stop
  // cleanly.
  QLocalServer::removeServer(serverName_);
  if (server_->listen(serverName_))
    return ListenResult::listening;
  spdlog::warn("links from later launches cannot be received: {}",
               server_->errorString().toStdString());
  return ListenResult::failed;
}

void URLForwardingServer::acceptConnections() {
  while (QLocalSocket* socket = server_->nextPendingConnection()) {
    buffers_[socket];
    connect(socket, &QLocalSocket::readyRead, this, [this, socket] { readFrom(socket); });
    connect(socket, &QLocalSocket::disconnected, this, [this, socket] {
      buffers_.erase(socket);
      socket->deleteLater();
    });
    readFrom(socket);
  }
}

void URLForwardingServer::readFrom(QLocalSocket* socket) {
  auto found = buffers_.find(socket);
  if (found == buffers_.end())
    return;
  QByteArray& buffer = found->second;
  buffer += socket->readAll();
  qsizetype end = 0;
  while ((end = buffer.indexOf('\n')) >= 0) {
    const QString url = QString::fromUtf8(buffer.left(end)).trimmed();
    buffer.remove(0, end + 1);
    socket->write(kAcknowledgement);
    if (!url.isEmpty() && onURL_)
      onURL_(url);
  }
  if (buffer.size() > kMaximumLineBytes) {
    spdlog::warn("a later launch sent a link longer than {} bytes; connection dropped",
                 kMaximumLineBytes);
    buffers_.erase(found);
    socket->abort();
  }
}

}  // namespace orvan::ui
