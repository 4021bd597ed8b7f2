// draizu-apihost: an installer-side host of the request protocol. It connects out to a
// client's local server (--server NAME) or serves standard input and output (--stdio). It exits
// with 0 once the engine has shut down on the client's SHUTDOWN, and with 1 and a message once
// the client has gone without one and the request running then has finished.

#include "HostFunctions.h"
#include "StdioFront.h"

#include <draizu/api/LN_ApiSocket.h>

#include <QAbstractEventDispatcher>
#include <QCommandLineParser>
#include <QCoreApplication>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

// Leaves the event loop once the engine has shut down, with the status that tells why.
class HostExit : public QObject
{
public:
    explicit HostExit(LN_ApiRequestEngine & engine)
        : engine_(engine)
    {
        // A shutdown with nothing running ends the engine without a signal, so the host looks
        // each time the event loop has nothing left to do.
        connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock, this,
                [this] {
                    if (engine_.hasShutdown())
                        leave();
                });
    }

    void leave()
    {
        if (left_)
            return;
        left_ = true;
        if (lost_)
            std::fprintf(stderr, "draizu-apihost: %s; exiting\n", lost_);
        QCoreApplication::exit(lost_ ? 1 : 0);
    }

    // A client that has gone can send no SHUTDOWN: the engine winds down as if it had, unless
    // the client had sent one before it went.
    void clientGone(char const * why)
    {
        if (engine_.shutdownRequested())
            return;
        lost_ = why;
        engine_.requestShutdown();
    }

private:
    LN_ApiRequestEngine & engine_;
    char const * lost_ = nullptr;
    bool left_ = false;
};

int serveSocket(QString const & serverName)
{
    LN_ApiSocket socket;
    HostFunctions::registerAll(socket.engine());
    QString error;
    if (socket.start(serverName, error) != 0) {
        std::fprintf(stderr, "draizu-apihost: cannot connect to %s: %s\n", qPrintable(serverName), qPrintable(error));
        return 1;
    }
    HostExit host(socket.engine());
    QObject::connect(&socket, &LN_ApiSocket::shutdown, &host, [&host] { host.leave(); });
    QObject::connect(&socket.connection(), &QLocalSocket::disconnected, &host,
                     [&host] { host.clientGone("the client closed the connection"); });
    return QCoreApplication::exec();
}

int serveStdio()
{
    StdioFront front;
    HostFunctions::registerAll(front.engine());
    HostExit host(front.engine());
    QObject::connect(&front, &StdioFront::inputEnded, &host,
                     [&host] { host.clientGone("standard input ended without SHUTDOWN"); });
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char * argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(u"draizu-apihost"_s);

    QCommandLineParser parser;
    parser.setApplicationDescription(u"Serves the request protocol to a client process."_s);
    parser.addHelpOption();
    QCommandLineOption const serverOption(u"server"_s, u"Connect to the client's local server <name>."_s, u"name"_s);
    QCommandLineOption const stdioOption(u"stdio"_s, u"Serve standard input and output."_s);
    parser.addOption(serverOption);
    parser.addOption(stdioOption);
    parser.process(app);

    if (parser.isSet(serverOption) == parser.isSet(stdioOption)) {
        std::fprintf(stderr, "draizu-apihost: give exactly one of --server NAME and --stdio\n");
        return 1;
    }
    return parser.isSet(stdioOption) ? serveStdio() : serveSocket(parser.value(serverOption));
}
