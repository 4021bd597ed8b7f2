#pragma once

// A web site for tests that must see every request whole, body included: an HTTP server on
// 127.0.0.1 that answers each request on a connection of its own, closed after the answer. It
// runs on the thread that created it. The account's tests play the login pages with it, the
// test oserver its /api:
//
//     site.answer = [](auto const &) { return TestLoginSite::Answer{200, "{}", {"sessionid=s1; Path=/"}}; };
//     QVERIFY(site.listen());   ... site.requests().last().headers.value("authorization") ...

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QString>
#include <QTcpServer>

#include <functional>

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
    bool listen(quint16 port = 0) { return server_.listen(QHostAddress::LocalHost, port); }
    /// "http://127.0.0.1:<port>", for settings that take a server's scheme and host.
    QString origin() const;
    /// Every request read so far, in order.
    QList<Request> requests() const { return requests_; }

private:
    void serve_(QTcpSocket * socket);

    QList<Request> requests_;
    QTcpServer server_;  // last, so that its connections go first
};
