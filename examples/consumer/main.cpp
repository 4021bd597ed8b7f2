// Serves one request through the engine on an in-memory stream and prints the reply.

#include <draizu/api/LN_ApiHandler.h>
#include <draizu/api/LN_ApiRequestEngine.h>
#include <draizu/core/LN_ErrorCategory.h>

#include <QCoreApplication>
#include <QTextStream>

#include <cstdio>

int main(int argc, char * argv[])
{
    QCoreApplication app(argc, argv);

    QString written;
    QTextStream stream(&written);
    LN_ApiRequestEngine engine(stream);
    engine.registerFunction(QSharedPointer<LN_IApiHandler>(new LN_ApiHandler(
        QStringLiteral("greet"), {LN_IApiHandler::Param{QStringLiteral("name"), {}}},
        [](LN_ApiRequest * request, QString const & name) { request->complete(QStringLiteral("Hello, ") + name); })));

    engine.queueRequest(LN_ApiRequest::Protocol_V1, QStringLiteral("t1"), QStringLiteral("API_FUNCTION"),
                        {QStringLiteral("text/plain"), QStringLiteral("json=[\"greet\",[\"consumer\"]]")});
    stream.flush();

    std::fputs(written.toUtf8().constData(), stdout);
    std::printf("%s\n", LN_FileErrorCategory().message(3).c_str());
    return written.contains(QStringLiteral("Hello, consumer")) ? 0 : 1;
}
