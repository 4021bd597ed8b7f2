// draizu-apihost: an installer-side host of the request protocol. It connects out to a
// client's local server (--server NAME) or serves standard input and output (--stdio), and
// exits once the engine has shut down.

#include "HostFunctions.h"
#include "StdioFront.h"

#include <draizu/api/LN_ApiSocket.h>

#include <QAbstractEventDispatcher>
#include <QCommandLineParser>
#include <QCoreApplication>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

// A SHUTDOWN with nothing running ends the engine without a signal, so the host looks each time
// the event loop has nothing left to do.
void quitOnceShutDown(LN_ApiRequestEngine & engine)
{
    QObject::connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock, &engine,
                     [&engine] {
                         if (engine.hasShutdown())
                             QCoreApplication::exit(0);
                     });
}

int serveSocket(QString const & serverName)
{
    LN_ApiSocket socket;
    HostFunctions::registerAll(socket.engine());
    QString error;
    if (socket.start(serverName, error) != 0) {
        std::fprintf(stderr, "draizu-apihost: cannot connect to %s: %s\n", qPrintable(serverName), qPrintable(error));
        return 1;
    }
    QObject::connect(&socket, &LN_ApiSocket::shutdown, qApp, [] { QCoreApplication::exit(0); });
    quitOnceShutDown(socket.engine());
    return QCoreApplication::exec();
}

int serveStdio()
{
    StdioFront front;
    HostFunctions::registerAll(front.engine());
    quitOnceShutDown(front.engine());
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
