#include "kit/HttpServer.h"

#include "kit/Media.h"
#include "kit/TestProcess.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QFileInfo>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

#include <csignal>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

// ---- ChildProcess ------------------------------------------------------------------------------

void ChildProcess::setupChildProcess()
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
}

// ---- HttpServer --------------------------------------------------------------------------------

/// Everything that nginx keeps in system folders is in `%1`. It is one process that any user may
/// run. sub_filter makes an answer chunked, because its length is not known in advance.
static const char* const configuration = R"(
daemon off;
master_process off;
pid %1/nginx.pid;
error_log %1/nginx-error.log;
events { worker_connections 64; }
http {
    access_log off;
    client_body_temp_path %1/nginx-body;
    proxy_temp_path %1/nginx-proxy;
    fastcgi_temp_path %1/nginx-fastcgi;
    uwsgi_temp_path %1/nginx-uwsgi;
    scgi_temp_path %1/nginx-scgi;
    server {
        listen 127.0.0.1:%2;
        location /plain/ { alias %1/; }
        location /noranges/ { alias %1/; max_ranges 0; }
        location /chunked/ {
            alias %1/;
            sub_filter "these words stand in no file" "";
            sub_filter_types *;
        }
        location /found/ { rewrite ^/found/(.*)$ /plain/$1 redirect; }
        location /moved/ { rewrite ^/moved/(.*)$ /plain/$1 permanent; }
    }
    server {
        listen 127.0.0.1:%3 ssl;
        ssl_certificate %1/nginx.crt;
        ssl_certificate_key %1/nginx.key;
        location /plain/ { alias %1/; }
    }
}
)";

/// A port that was free a moment ago.
static quint16 freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost);
    return probe.serverPort();
}

HttpServer::HttpServer()
{
    const QString key = TestProcess::path("nginx.key");
    if (!QFileInfo::exists(key)) {
        media::run("openssl",
                   {"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", key, "-out",
                    TestProcess::path("nginx.crt"), "-days", "2", "-subj", "/CN=localhost"});
    }
    // Another process may take a port between the check and its use; then try the next ones.
    for (int attempt = 0; attempt < 10; ++attempt) {
        if (start(freePort(), freePort())) {
            return;
        }
    }
    qFatal("nginx does not start:\n%s",
           media::readFile(TestProcess::path("nginx-error.log")).constData());
}

HttpServer::~HttpServer()
{
    nginx.terminate();
    nginx.waitForFinished();
}

bool HttpServer::start(quint16 httpPort, quint16 httpsPort)
{
    const QString folder = TestProcess::path();
    const QString file = media::writeFile(
        "nginx.conf",
        QString(configuration).arg(folder).arg(httpPort).arg(httpsPort).toLocal8Bit());
    nginx.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    // Debian keeps it outside the PATH of ordinary users.
    nginx.start("/usr/sbin/nginx", {"-p", folder, "-e", folder + "/nginx-error.log", "-c", file});
    port = httpPort;
    tlsPort = httpsPort;
    return nginx.waitForStarted() && answers(httpPort) && answers(httpsPort);
}

bool HttpServer::answers(quint16 tcpPort)
{
    QDeadlineTimer deadline(30000);
    while (nginx.state() == QProcess::Running && !deadline.hasExpired()) {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, tcpPort);
        if (socket.waitForConnected(1000)) {
            return true;
        }
        nginx.waitForFinished(10); // it ends at once if a port is not available
    }
    return false;
}

QString HttpServer::url(const QString& name, Way way) const
{
    static const char* const folders[] = {"plain", "noranges", "chunked", "found", "moved"};
    return QStringLiteral("http://127.0.0.1:%1/%2/%3")
        .arg(port)
        .arg(QLatin1String(folders[static_cast<int>(way)]), name);
}

QString HttpServer::httpsUrl(const QString& name) const
{
    return QStringLiteral("https://127.0.0.1:%1/plain/%2").arg(tlsPort).arg(name);
}

// ---- ScriptedServer ----------------------------------------------------------------------------

ScriptedServer::ScriptedServer(const QByteArray& answer, Then then) : server(new QTcpServer)
{
    server->listen(QHostAddress::LocalHost);
    port = server->serverPort();
    QObject::connect(server, &QTcpServer::newConnection, server,
                     [listening = server, answer, then, counter = answered] {
                         while (QTcpSocket* socket = listening->nextPendingConnection()) {
                             serve(socket, answer, then, counter);
                         }
                     });
    server->moveToThread(&thread);
    QObject::connect(&thread, &QThread::finished, server, &QObject::deleteLater);
    thread.start();
}

ScriptedServer::~ScriptedServer()
{
    thread.quit();
    thread.wait();
}

QString ScriptedServer::url() const
{
    return QStringLiteral("http://127.0.0.1:%1/item").arg(port);
}

int ScriptedServer::answers() const
{
    return *answered;
}

/// Makes the kernel reset the connection when it is closed.
static void resetOnClose(const QTcpSocket& socket)
{
    const linger atOnce{1, 0};
    ::setsockopt(static_cast<int>(socket.socketDescriptor()), SOL_SOCKET, SO_LINGER, &atOnce,
                 sizeof atOnce);
}

/// Answers when the whole request has arrived: closing earlier would be a reset.
void ScriptedServer::serve(QTcpSocket* socket, const QByteArray& answer, Then then,
                           const Counter& answered)
{
    QObject::connect(socket, &QTcpSocket::readyRead, socket, [socket, answer, then, answered] {
        if (!socket->peek(65536).contains("\r\n\r\n")) {
            return;
        }
        socket->readAll();
        socket->write(answer);
        if (then == Then::Reset) {
            socket->flush();
            resetOnClose(*socket);
            socket->abort();
        } else if (then == Then::Close) {
            socket->disconnectFromHost();
        }
        ++*answered;
    });
    QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
}

QByteArray httpHeaders(int bodySize)
{
    return "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\nContent-Length: " +
           QByteArray::number(bodySize) + "\r\n\r\n";
}

// ---- RefusingPort ------------------------------------------------------------------------------

RefusingPort::RefusingPort() : socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address{};
    socklen_t size = sizeof address;
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* raw = reinterpret_cast<sockaddr*>(&address);
    if (::bind(socket, raw, size) != 0 || ::getsockname(socket, raw, &size) != 0) {
        qFatal("cannot bind a port of loopback");
    }
    port = ntohs(address.sin_port);
}

RefusingPort::~RefusingPort()
{
    ::close(socket);
}

QString RefusingPort::url() const
{
    return QStringLiteral("http://127.0.0.1:%1/item").arg(port);
}
