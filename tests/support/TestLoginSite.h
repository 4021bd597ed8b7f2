#pragma once

// A web site for tests that must see every request whole, body included: an HTTP or HTTPS server
// on 127.0.0.1 that answers each request on a connection of its own, closed after the answer. It
// runs on the thread that created it. The account's tests play the login pages with it over
// HTTPS, with a certificate of a test CA made at start (openssl), the test oserver its /api over
// HTTP:
//
//     site.answer = [](auto const &) { return TestLoginSite::Answer{200, "{}", {"sessionid=s1; Path=/"}}; };
//     QVERIFY(site.listen());   ... site.requests().last().headers.value("authorization") ...

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QSslConfiguration>
#include <QSslServer>
#include <QString>
#include <QTemporaryDir>

#include <functional>
#include <memory>

class TestLoginSite
{
public:
    struct Request
    {
        QByteArray method;
        QString path;                          ///< as sent, query included
        QHash<QByteArray, QByteArray> headers; ///< by the name in lower case
        QByteArray body;
    };

    struct Answer
    {
        int status = 200;
        QByteArray body;            ///< sent as application/json
        QList<QByteArray> cookies;  ///< one Set-Cookie header each
        bool silent = false;        ///< read the request, then never answer
    };

    TestLoginSite();

    /// Decides the answer to each request as it comes; unset, every request is left unanswered.
    std::function<Answer(Request const &)> answer;

    /// Listens on 127.0.0.1 at the port, a free one by default; false when it cannot.
    bool listen(quint16 port = 0);
    /// Makes a test CA and a certificate for 127.0.0.1 signed by it, then listens for HTTPS on
    /// a free port; false when openssl or the listening fails.
    bool listenTls();
    /// What a client must use to trust the site's CA, and no other.
    QSslConfiguration clientConfiguration() const { return clientConfiguration_; }
    /// "http://127.0.0.1:<port>" or "https://...", for settings that take a scheme and host.
    QString origin() const;
    /// Every request read so far, in order.
    QList<Request> requests() const { return requests_; }

private:
    void serve_(QTcpSocket * socket);

    QList<Request> requests_;
    QTemporaryDir certificates_;
    QSslConfiguration clientConfiguration_;
    // A QSslServer for HTTPS. Last, so that its connections go first.
    std::unique_ptr<QTcpServer> server_;
};
