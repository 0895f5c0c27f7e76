#pragma once

#include <QByteArray>
#include <QMap>
#include <QPair>
#include <QPointer>
#include <QSslConfiguration>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUrl>
#include <QVector>

#include <functional>

/// A web server on 127.0.0.1, on a port that the system picks, that answers as the test tells it. It works in
/// the test's own thread, while the event loop runs, and closes a connection after one answer.
class HttpServer final : public QTcpServer
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(HttpServer)

public:
    struct Request
    {
        QByteArray method;
        QByteArray target;                    ///< path and query, as they were sent
        QMap<QByteArray, QByteArray> headers; ///< names in lower case
    };
    struct Answer
    {
        QByteArray body;
        QByteArray contentType = QByteArrayLiteral("application/rss+xml");
        int status = 200;
        QVector<QPair<QByteArray, QByteArray>> headers;
    };
    using Handler = std::function<Answer(const Request&)>;
    /// Has the connection for itself; it stays open until this, or the other end, closes it.
    using RawHandler = std::function<void(const Request&, QTcpSocket*)>;

    enum class Security
    {
        Plain,
        Tls
    };

    explicit HttpServer(Security security = Security::Plain);
    ~HttpServer() override;

    QUrl url(const QString& target) const;

    /// What a path gets, whatever its query; one that was not named gets a 404.
    void serve(const QString& path, const Answer& answer);
    void serve(const QString& path, const Handler& handler);
    void serveRaw(const QString& path, const RawHandler& handler);
    void redirect(const QString& path, const QByteArray& location, int status = 302);
    /// Never answers.
    void hang(const QString& path);
    /// Sends the head of an answer, and then @p piece as often as the other end takes it.
    void serveEndless(const QString& path, const QByteArray& contentType, const QByteArray& piece, int status = 200,
                      const QByteArray& location = QByteArray());

    /// All requests so far, oldest first.
    const QVector<Request>& requests() const;
    void forgetRequests();
    QVector<QByteArray> targets() const;
    /// How often @p path was asked for, whatever the query.
    int count(const QString& path) const;
    int openConnections() const;
    /// What endless answers have sent.
    qint64 endlessBytes() const;

    /// What a client needs to trust the certificate.
    static QSslConfiguration trusting();
    /// Whether a server can have the certificate of the tests. Wine's TLS has no server side for it.
    static bool canBeSecure();

protected:
    void incomingConnection(qintptr descriptor) override;

private slots:
    void read();

private:
    void answer(const Request& request, QTcpSocket* socket);
    void drain(QTcpSocket* socket, const QByteArray& piece);

    Security m_security;
    QMap<QString, RawHandler> m_handlers;
    QVector<Request> m_requests;
    QMap<QTcpSocket*, QByteArray> m_unread;
    int m_open = 0;
    qint64 m_endlessBytes = 0;
};
