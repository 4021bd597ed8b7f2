// The local oserver for the account's tests, run as the service "OrvanisServer":
//     testoserver <port> <directory>
// It answers "/api" at the port after the pause in <directory>/delay (milliseconds, if that file
// exists), reading the command from the form field "json", as the directory's files say at each
// request: <command> holds the answer to that command ("pull_cookies": a status, a blank, the
// body; "200 {}" without the file; none at all for "silent"); with PUT present a PUT gets 405;
// log gets a line per request, the method, a blank and the command. An answered "cmd_shutdown"
// ends the program.

#include "TestLoginSite.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QThread>
#include <QTimer>
#include <QUrlQuery>

using namespace Qt::StringLiterals;

int main(int argc, char ** argv)
{
    QCoreApplication app(argc, argv);
    QDir const dir(QCoreApplication::arguments().value(2));
    auto const read = [&dir](QString const & name) {
        QFile file(dir.filePath(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    };
    QThread::msleep(read(u"delay"_s).trimmed().toULong());

    TestLoginSite site;
    site.answer = [&](TestLoginSite::Request const & request) {
        QString const json = QUrlQuery(QString::fromUtf8(request.body)).queryItemValue(u"json"_s, QUrl::FullyDecoded);
        QString const command = QJsonDocument::fromJson(json.toUtf8()).array().first().toString();
        QFile log(dir.filePath(u"log"_s));
        if (log.open(QIODevice::Append))
            log.write(request.method + ' ' + json.toUtf8() + '\n');
        QByteArray answer = request.method == "PUT" && dir.exists(u"PUT"_s) ? "405 " : read(command);
        answer = answer.isEmpty() ? "200 {}" : answer;
        // Long enough for the answer to go out first.
        if (command == u"cmd_shutdown" && answer.startsWith("200 "))
            QTimer::singleShot(300, &app, &QCoreApplication::quit);
        return TestLoginSite::Answer{answer.left(answer.indexOf(' ')).toInt(), answer.mid(answer.indexOf(' ') + 1), {},
                                     answer == "silent"};
    };
    return site.listen(QCoreApplication::arguments().value(1).toUShort()) ? app.exec() : 1;
}
