#ifndef KIT_HTTP_SERVER_H
#define KIT_HTTP_SERVER_H

#include <QtCore/QProcess>
#include <QtCore/QString>
#include <QtCore/QThread>

#include <atomic>
#include <memory>

class QTcpServer;
class QTcpSocket;

/// A process that ends with the test, also if the test is killed.
class ChildProcess : public QProcess
{
protected:
    void setupChildProcess() override;
};

/// A web server for this test: nginx on loopback, which serves the folder of the test process in
/// several ways. It runs from construction to destruction and needs no privileges.
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
        Moved,    ///< redirected permanently (301) to Plain
    };

    /// Starts the server and waits until it answers. The test process ends if it does not.
    HttpServer();
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    /// The URL of a file of TestProcess::path().
    QString url(const QString& name, Way way = Way::Plain) const;
    /// The same over TLS, with a certificate that is not trusted.
    QString httpsUrl(const QString& name) const;

private:
    bool start(quint16 httpPort, quint16 httpsPort);
    bool answers(quint16 tcpPort);

    ChildProcess nginx;
    quint16 port = 0;
    quint16 tlsPort = 0;
};

/// A server that answers every request with the same bytes, on its own thread. The path of a
/// request does not matter.
class ScriptedServer
{
public:
    /// What happens to a connection after the answer is sent.
    enum class Then
    {
        Close,
        Reset, ///< the connection is reset, and unread data is lost
        Hold,  ///< it stays open without data until the client closes it
    };

    ScriptedServer(const QByteArray& answer, Then then);
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    QString url() const;
    /// Returns the number of answers so far.
    int answers() const;

private:
    using Counter = std::shared_ptr<std::atomic_int>;

    static void serve(QTcpSocket* socket, const QByteArray& answer, Then then,
                      const Counter& answered);

    QThread thread;
    QTcpServer* server; ///< lives on `thread`, which does not access this object itself
    quint16 port = 0;
    Counter answered = std::make_shared<std::atomic_int>(0);
};

/// The beginning of a complete answer: a status line and headers for so many bytes.
QByteArray httpHeaders(int bodySize);

/// A TCP port of loopback that refuses connections while this object exists.
class RefusingPort
{
public:
    RefusingPort();
    ~RefusingPort();
    RefusingPort(const RefusingPort&) = delete;
    RefusingPort& operator=(const RefusingPort&) = delete;

    QString url() const;

private:
    int socket; ///< bound, so that no other process gets the port, but not listening
    quint16 port = 0;
};

#endif
