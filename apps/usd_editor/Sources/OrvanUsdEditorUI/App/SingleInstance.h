#pragma once

#include <QObject>
#include <QString>

#include <functional>
#include <map>

class QLocalServer;
class QLocalSocket;

namespace orvan::ui {

// The local socket of this user's running editor, in the user's runtime folder. A second launch
// with a link hands the link to it instead of opening a second editor.
QString editorInstanceServerName();

// Hands `url` to the editor listening on `serverName` and waits for its acknowledgement. Returns
// false when no editor answers in time; the caller then opens the link itself. Blocking: call it
// before the event loop runs (or off the thread that runs the server).
bool forwardURLToRunningEditor(const QString& serverName, const QString& url, int timeoutMs = 2000);

// The running editor's end: accepts one link per line from later launches, acknowledges each with
// "ok", and passes it on. A connection that sends an oversized line is dropped with a log line.
class URLForwardingServer final : public QObject {
  Q_OBJECT
 public:
  enum class ListenResult { listening, anotherEditorIsRunning, failed };

  URLForwardingServer(QString serverName, std::function<void(QString url)> onURL,
                      QObject* parent = nullptr);
  ~URLForwardingServer() override;

  // Takes the name. A name left behind by an editor that crashed is reclaimed; a name held by a
  // live editor is not.
  ListenResult listen();
  bool isListening() const;

  static constexpr qsizetype kMaximumLineBytes = 64 * 1024;

 private:
  void acceptConnections();
  void readFrom(QLocalSocket* socket);

  QString serverName_;
  std::function<void(QString)> onURL_;
  QLocalServer* server_;
  std::map<QLocalSocket*, QByteArray> buffers_;
};

}  // namespace orvan::ui
