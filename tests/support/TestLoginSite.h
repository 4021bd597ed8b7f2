#pragma once

// The site's login pages for tests: an HTTPS server on 127.0.0.1 at a free port, whose
// certificate comes from a CA that start() makes with the openssl tool. A client trusts it
// through clientConfiguration(), which trusts that CA and nothing else. The site runs on the
// thread that created it and answers whenever that thread's event loop runs.
//
//     TestLoginSite site;
//     QVERIFY(site.start());
//     site.on(u"/login/launcher/"_s, {200, R"({"username": "ann"})", {"sessionid=s1; Path=/"}});
//     site.on(u"/logout/"_s, {200, {}, {}, true});   // read, never answered
//     ... site.requests().last().method, .header("authorization"), .body ...
//
// Every request is recorded whole, body included, and answered on a connection of its own,
// which is closed after the answer. Unscripted paths answer 404.

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QPair>
#include <QSslConfiguration>
#include <QSslServer>
#include <QString>
#include <QTemporaryDir>

class TestLoginSite : public QObject
{
    Q_OBJECT

public:
    struct Request
    {
        QByteArray method;
        QString path;  ///< as sent, query included
        QList<QPair<QByteArray, QByteArray>> headers;
        QByteArray body;

        /// The value of the first header of that name, compared without regard to case.
        QByteArray header(QByteArray const & name) const;
    };

    struct Answer
    {
        int status = 200;
        QByteArray body;            ///< sent as application/json
        QList<QByteArray> cookies;  ///< one Set-Cookie header each
        bool silent = false;        ///< read the request, then never answer
    };

    explicit TestLoginSite(QObject * parent = nullptr);

    /// Makes the CA and the site's certificate, then listens; false with a warning.
    bool start();
    /// "https://127.0.0.1:<port>", for settings that take a server's scheme and host.
    QString origin() const;
    /// TLS settings for a client that trusts the site's CA alone.
    QSslConfiguration clientConfiguration() const { return clientConfiguration_; }

    /// Answers every later request of the path (the query aside) this way.
    void on(QString const & path, Answer const & answer) { routes_.insert(path, answer); }
    /// Forgets every route and every recorded request.
    void clear();
    QList<Request> requests() const { return requests_; }

private:
    void serve_(QTcpSocket * socket);

    QTemporaryDir dir_;
    QSslServer server_;
    QSslConfiguration clientConfiguration_;
    QHash<QString, Answer> routes_;
    QList<Request> requests_;
};
