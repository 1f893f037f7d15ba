#ifndef KIT_HTTP_SERVER_H
#define KIT_HTTP_SERVER_H

#include <QtCore/QProcess>
#include <QtCore/QString>
#include <QtCore/QThread>

#include <atomic>
#include <memory>

class QTcpServer;
class QTcpSocket;

/// A process that dies with the test, also when the test is killed.
class ChildProcess : public QProcess
{
protected:
    void setupChildProcess() override;
};

/// A web server of this test alone: nginx on loopback, serving the test process's folder in several
/// ways. Runs from construction to destruction, without a daemon and without any rights.
class HttpServer
{
public:
    /// How a file is served: the first folder of its URL.
    enum class Way
    {
        Plain,    ///< with a length and with ranges
        NoRanges, ///< with a length, ranges are not offered
        Chunked,  ///< in chunks, without a length
        Found,    ///< redirected (302) to Plain
        Moved,    ///< redirected for ever (301) to Plain
    };

    /// Starts the server and waits until it answers. The test process ends when it does not.
    HttpServer();
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    /// The URL of a file of TestProcess::path().
    QString url(const QString& name, Way way = Way::Plain) const;
    /// The same over TLS, with a certificate that nobody has signed.
    QString httpsUrl(const QString& name) const;

private:
    bool start(quint16 httpPort, quint16 httpsPort);
    bool answers(quint16 tcpPort);

    ChildProcess nginx;
    quint16 port = 0;
    quint16 tlsPort = 0;
};

/// A server that answers every request with the same bytes, whatever they are, on a thread of its
/// own. It serves /item and every other path alike.
class ScriptedServer
{
public:
    /// What becomes of a connection when the answer is sent.
    enum class Then
    {
        Close,
        Reset, ///< the connection is cut off, and with it what was not taken yet
        Hold,  ///< it is held open in silence, until the client closes it
    };

    ScriptedServer(const QByteArray& answer, Then then);
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    QString url() const;
    /// How many answers were given so far.
    int answers() const;

private:
    using Counter = std::shared_ptr<std::atomic_int>;

    static void serve(QTcpSocket* socket, const QByteArray& answer, Then then,
                      const Counter& answered);

    QThread thread;
    QTcpServer* server; ///< lives on `thread`, which touches nothing of this object itself
    quint16 port = 0;
    Counter answered = std::make_shared<std::atomic_int>(0);
};

/// The beginning of a whole answer: a status line and headers for so many bytes.
QByteArray httpHeaders(int bodySize);

/// A TCP port of loopback that refuses connections while this object lives.
class RefusingPort
{
public:
    RefusingPort();
    ~RefusingPort();
    RefusingPort(const RefusingPort&) = delete;
    RefusingPort& operator=(const RefusingPort&) = delete;

    QString url() const;

private:
    int socket; ///< bound, so that nobody else gets the port, and not listening
    quint16 port = 0;
};

#endif
