#include "AccountCommands.h"

#include "CommandError.h"

#include <draizu/account/LN_CookieUtil.h>
#include <draizu/account/LN_LoginStatus.h>
#include <draizu/account/LN_OserverConnection.h>
#include <draizu/account/LN_SettingsFile.h>
#include <draizu/api/LN_Message.h>
#include <draizu/core/LN_Waits.h>
#include <draizu/records/LN_InstallMetadata.h>

#include <QCommandLineParser>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkCookieJar>
#include <QTimer>

#include <cstdio>
#include <iostream>
#include <string>

#include <termios.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// What a login leaves for the next run.
struct StoredSession
{
    QString session;
    QString token;
    QString username;
};

QString sessionFile(Context const & context)
{
    return QDir::cleanPath(context.repository.directory.absoluteFilePath(u"../session"_s));
}

StoredSession readSession(Context const & context)
{
    QFile file(sessionFile(context));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QJsonObject const object = QJsonDocument::fromJson(file.readAll()).object();
    return {object.value(u"session"_s).toString(), object.value(u"token"_s).toString(),
            object.value(u"username"_s).toString()};
}

void writeSession(Context const & context, StoredSession const & stored)
{
    QFile file(sessionFile(context));
    // Made unreadable to others before anything is written into it.
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)
        || !file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner))
        throw CommandError(Exit_Failure, u"Cannot keep the session in %1: %2"_s.arg(file.fileName(), file.errorString()));
    file.write(QJsonDocument(QJsonObject{{u"session"_s, stored.session},
                                         {u"token"_s, stored.token},
                                         {u"username"_s, stored.username}})
                   .toJson(QJsonDocument::Compact));
}

// Runs until the login status settles in LoggedIn or LoggedOut, or until a failure that leaves
// it where it was; the last failure's text, if any.
QString waitForOutcome(LN_LoginStatus & status)
{
    QString failure;
    QEventLoop loop;
    QObject::connect(&status, &LN_LoginStatus::error, &loop, [&](QString const & text) {
        failure = text;
        // A failure is followed by its change of state, if any, in the same call.
        QTimer::singleShot(0, &loop, [&] {
            if (status.loginState() == LN_LoginState::LoggedIn || status.loginState() == LN_LoginState::LoggedOut)
                loop.quit();
        });
    });
    QObject::connect(&status, &LN_LoginStatus::loginStateChanged, &loop, [&](LN_LoginState, LN_LoginState state) {
        if (state == LN_LoginState::LoggedIn || state == LN_LoginState::LoggedOut)
            loop.quit();
    });
    QTimer::singleShot(LN_Waits::ms(LN_Waits::LoginAbort) + 5000, &loop, &QEventLoop::quit);
    loop.exec(QEventLoop::ExcludeUserInputEvents);
    return failure;
}

// The password from the terminal, not echoed; never from the command line.
QString promptPassword(QString const & username)
{
    if (!isatty(STDIN_FILENO))
        throw CommandError(Exit_Usage, u"A password is read from the terminal, or from a credentials file with "
                                       u"--credentials; standard input is not a terminal"_s);
    std::fprintf(stderr, "Password for %s: ", qPrintable(username));
    termios saved = {};
    tcgetattr(STDIN_FILENO, &saved);
    termios silent = saved;
    silent.c_lflag &= ~tcflag_t(ECHO);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    std::string line;
    std::getline(std::cin, line);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
    std::fputc('\n', stderr);
    return QString::fromStdString(line);
}

// The stored session goes into the cookie jar, where the site's requests find it.
void restoreSession(Context & context, StoredSession const & stored)
{
    if (!stored.session.isEmpty())
        context.network.cookieJar()->insertCookie(LN_CookieUtil::createSessionCookie(stored.session));
}

int login(Context & context, QCommandLineParser const & parser, QStringList const & arguments)
{
    if (!arguments.isEmpty())
        throw CommandError(Exit_Usage, u"Incorrect number of arguments"_s);
    LN_LoginStatus status(&context.network);
    if (parser.isSet(u"credentials"_s)) {
        LN_SettingsFile credentials(parser.value(u"credentials"_s));
        if (LN_ErrorStruct const error = credentials.load(); error.isError())
            throw CommandError(Exit_Failure, u"Cannot read %1: %2"_s.arg(credentials.path(), error.message));
        if (!status.initiateLogin(credentials))
            throw CommandError(Exit_Usage, u"%1 holds neither a user name and password nor a client id and secret"_s.arg(
                                               credentials.path()));
    } else if (parser.isSet(u"username"_s)) {
        QString const username = parser.value(u"username"_s);
        status.initiateLogin(username, promptPassword(username));
    } else {
        throw CommandError(Exit_Usage, u"Give --username, or a credentials file with --credentials"_s);
    }
    QString const failure = waitForOutcome(status);
    if (status.loginState() != LN_LoginState::LoggedIn)
        throw CommandError(Exit_Failure, failure.isEmpty() ? u"The login did not finish"_s : failure);
    writeSession(context, {status.sessionID(), QString::fromUtf8(status.accessToken()), status.userData().username});
    return context.console.finish(u"login"_s, Exit_Success, u"Logged in as "_s + status.userData().username,
                                  {{u"username"_s, status.userData().username}});
}

// The oserver's session, if it has one: its cookies are pulled, starting it when needed, and a
// session among them is validated.
void takeOserverSession(Context & context, LN_LoginStatus & status)
{
    LN_OserverConnection oserver(status, &context.network);
    QEventLoop loop;
    QObject::connect(&oserver, &LN_OserverConnection::syncCookiesFinished, &loop, &QEventLoop::quit);
    QObject::connect(&oserver, &LN_OserverConnection::startedOserver, &loop, [&](bool started) {
        if (!started)
            loop.quit();
    });
    QTimer::singleShot(LN_Waits::ms(LN_Waits::OserverStart) + LN_Waits::ms(LN_Waits::LoginAbort), &loop,
                       &QEventLoop::quit);
    oserver.syncCookiesFromOserver();
    loop.exec(QEventLoop::ExcludeUserInputEvents);
    if (status.loginState() == LN_LoginState::Reconnecting)
        waitForOutcome(status);
}

int whoami(Context & context, QCommandLineParser const &, QStringList const & arguments)
{
    if (!arguments.isEmpty())
        throw CommandError(Exit_Usage, u"Incorrect number of arguments"_s);
    StoredSession const stored = readSession(context);
    LN_LoginStatus status(&context.network);
    restoreSession(context, stored);
    if (!stored.session.isEmpty()) {
        status.initiateReconnectSession(stored.session.toUtf8());
        waitForOutcome(status);
    } else if (!stored.token.isEmpty()) {
        status.initiateReconnectAccessToken(stored.token.toUtf8());
        waitForOutcome(status);
    } else {
        takeOserverSession(context, status);
    }
    if (status.loginState() != LN_LoginState::LoggedIn)
        return context.console.finish(u"whoami"_s, Exit_NotFound, u"Not logged in"_s);
    return context.console.finish(u"whoami"_s, Exit_Success, status.userData().username,
                                  {{u"username"_s, status.userData().username}});
}

int logout(Context & context, QCommandLineParser const &, QStringList const & arguments)
{
    if (!arguments.isEmpty())
        throw CommandError(Exit_Usage, u"Incorrect number of arguments"_s);
    StoredSession const stored = readSession(context);
    LN_LoginStatus status(&context.network);
    if (!stored.session.isEmpty() || !stored.token.isEmpty()) {
        restoreSession(context, stored);
        status.loggedInWithUserData(stored.session.toUtf8(), stored.username);
        status.initiateLogout();
        QString const failure = waitForOutcome(status);
        if (status.loginState() != LN_LoginState::LoggedOut)
            throw CommandError(Exit_Failure, failure.isEmpty() ? u"The logout did not finish"_s : failure);
        QFile::remove(sessionFile(context));
    }
    // The oserver keeps the site's cookies for every program of the user: its session goes too.
    LN_OserverConnection oserver(status, &context.network);
    QEventLoop loop;
    bool dropped = false;
    QObject::connect(&oserver, &LN_OserverConnection::loggedOserverOut, &loop, [&](bool success) {
        dropped = success;
        loop.quit();
    });
    QTimer::singleShot(LN_Waits::ms(LN_Waits::OserverStop), &loop, &QEventLoop::quit);
    oserver.logoutOserver();
    loop.exec(QEventLoop::ExcludeUserInputEvents);
    if (!dropped)
        context.console.report(LN_Message::info(u"The local oserver does not answer; it holds no session to drop"_s));
    return context.console.finish(u"logout"_s, Exit_Success, u"Logged out"_s);
}

} // namespace

QList<OwnCommand> AccountCommands::commands()
{
    return {
        {u"login"_s, u"login"_s, u"Log in on the site; the password is asked for on the terminal"_s,
         {{u"username"_s, u"The account to log in as"_s, u"name"_s},
          {u"credentials"_s, u"A credentials file: username and password, or client_id and client_secret"_s,
           u"file"_s}},
         login},
        {u"whoami"_s, u"whoami"_s, u"The account logged in, by the kept session or the local oserver's"_s, {}, whoami},
        {u"logout"_s, u"logout"_s, u"Log out on the site and drop the local oserver's session"_s, {}, logout},
    };
}
