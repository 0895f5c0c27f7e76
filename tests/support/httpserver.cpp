#include "tests/support/httpserver.h"

#include <QFile>
#include <QSslCertificate>
#include <QSslKey>
#include <QSslSocket>

namespace
{

QSslCertificate certificate()
{
    const auto certificates = QSslCertificate::fromPath(QStringLiteral(":/tls/server.crt"));
    if (certificates.isEmpty())
        qFatal("the tests' certificate is not in this program");
    return certificates.first();
}

QSslKey privateKey()
{
    QFile file(QStringLiteral(":/tls/server.key"));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("the key of the tests' certificate is not in this program");
    return QSslKey(&file, QSsl::Rsa);
}

QByteArray head(const HttpServer::Answer& answer)
{
    QByteArray text = "HTTP/1.1 " + QByteArray::number(answer.status) + " Status\r\nConnection: close\r\n";
    if (!answer.contentType.isEmpty())
        text += "Content-Type: " + answer.contentType + "\r\n";
    for (const auto& header : answer.headers)
        text += header.first + ": " + header.second + "\r\n";
    return text;
}

HttpServer::Request parse(const QByteArray& text)
{
    HttpServer::Request request;
    const QList<QByteArray> lines = text.split('\n');
    const QList<QByteArray> words = lines.first().trimmed().split(' ');
    request.method = words.value(0);
    request.target = words.value(1);
    for (int i = 1; i < lines.size(); ++i) {
        const int colon = lines.at(i).indexOf(':');
        if (colon > 0)
            request.headers.insert(lines.at(i).left(colon).toLower(), lines.at(i).mid(colon + 1).trimmed());
    }
    return request;
}

QString pathOf(const QByteArray& target)
{
    return QString::fromLatin1(target.split('?').first());
}

} // namespace

HttpServer::HttpServer(Security security)
    : m_security(security)
{
    if (!listen(QHostAddress::LocalHost))
        qFatal("no port for the tests' server");
}

HttpServer::~HttpServer()
{
    for (auto* socket : findChildren<QTcpSocket*>())
        socket->disconnect();
}

QUrl HttpServer::url(const QString& target) const
{
    const QString scheme = m_security == Security::Tls ? QStringLiteral("https") : QStringLiteral("http");
    return QUrl(QStringLiteral("%1://127.0.0.1:%2%3").arg(scheme, QString::number(serverPort()), target));
}

void HttpServer::serve(const QString& path, const Answer& answer)
{
    serve(path, [answer](const Request&) { return answer; });
}

void HttpServer::serve(const QString& path, const Handler& handler)
{
    serveRaw(path, [handler](const Request& request, QTcpSocket* socket) {
        const Answer answer = handler(request);
        socket->write(head(answer) + "Content-Length: " + QByteArray::number(answer.body.size()) + "\r\n\r\n");
        socket->write(answer.body);
        socket->disconnectFromHost();
    });
}

void HttpServer::serveRaw(const QString& path, const RawHandler& handler)
{
    m_handlers.insert(path, handler);
}

void HttpServer::redirect(const QString& path, const QByteArray& location, int status)
{
    Answer answer;
    answer.status = status;
    answer.headers.append({"Location", location});
    answer.body = "moved";
    answer.contentType = "text/plain";
    serve(path, answer);
}

void HttpServer::hang(const QString& path)
{
    serveRaw(path, [](const Request&, QTcpSocket*) {});
}

void HttpServer::serveEndless(const QString& path, const QByteArray& contentType, const QByteArray& piece, int status,
                              const QByteArray& location)
{
    serveRaw(path, [this, contentType, piece, status, location](const Request&, QTcpSocket* socket) {
        Answer answer;
        answer.contentType = contentType;
        answer.status = status;
        if (!location.isEmpty())
            answer.headers.append({"Location", location});
        connect(socket, &QTcpSocket::bytesWritten, this, [this, socket, piece] { drain(socket, piece); });
        socket->write(head(answer) + "\r\n");
    });
}

void HttpServer::drain(QTcpSocket* socket, const QByteArray& piece)
{
    if (socket->bytesToWrite() == 0 && socket->state() == QAbstractSocket::ConnectedState)
        m_endlessBytes += socket->write(piece);
}

const QVector<HttpServer::Request>& HttpServer::requests() const
{
    return m_requests;
}

void HttpServer::forgetRequests()
{
    m_requests.clear();
}

QVector<QByteArray> HttpServer::targets() const
{
    QVector<QByteArray> targets;
    for (const Request& request : m_requests)
        targets << request.target;
    return targets;
}

int HttpServer::count(const QString& path) const
{
    int count = 0;
    for (const Request& request : m_requests)
        count += pathOf(request.target) == path ? 1 : 0;
    return count;
}

int HttpServer::openConnections() const
{
    return m_open;
}

qint64 HttpServer::endlessBytes() const
{
    return m_endlessBytes;
}

bool HttpServer::canBeSecure()
{
#ifdef Q_OS_WIN
    return false;
#else
    return true;
#endif
}

QSslConfiguration HttpServer::trusting()
{
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.addCaCertificate(certificate());
    return configuration;
}

void HttpServer::incomingConnection(qintptr descriptor)
{
    auto* socket = m_security == Security::Tls ? new QSslSocket(this) : new QTcpSocket(this);
    ++m_open;
    connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
        --m_open;
        m_unread.remove(socket);
        socket->deleteLater();
    });
    connect(socket, SIGNAL(readyRead()), this, SLOT(read()));
    if (!socket->setSocketDescriptor(descriptor))
        qFatal("a connection was lost");
    socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    if (auto* secure = qobject_cast<QSslSocket*>(socket)) {
        secure->setLocalCertificate(certificate());
        secure->setPrivateKey(privateKey());
        secure->startServerEncryption();
    }
}

void HttpServer::read()
{
    auto* socket = qobject_cast<QTcpSocket*>(sender());
    QByteArray& unread = m_unread[socket];
    unread += socket->readAll();
    const int end = unread.indexOf("\r\n\r\n");
    if (end < 0)
        return;
    const Request request = parse(unread.left(end));
    unread.clear();
    m_requests << request;
    answer(request, socket);
}

void HttpServer::answer(const Request& request, QTcpSocket* socket)
{
    const RawHandler handler = m_handlers.value(pathOf(request.target));
    if (handler) {
        handler(request, socket);
        return;
    }
    socket->write("HTTP/1.1 404 Not Found\r\nConnection: close\r\nContent-Length: 0\r\n\r\n");
    socket->disconnectFromHost();
}
