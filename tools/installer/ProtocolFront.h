#pragma once

#include <QDir>
#include <QString>

class QNetworkAccessManager;

/// draizu-installer --server NAME: the installer's work offered as functions of the request
/// protocol, on a connection to the client's local server. Each request loads the repository
/// afresh and runs the same code as the command line; its reports arrive as PROGRESS, MESSAGE,
/// WARNING and ERROR, and its COMPLETE carries the result object of --json, with the status
/// 200 for success, 400 for a wrong call, 404 for something not found and 500 for any other
/// failure. A CANCEL is accepted by every function and stops an operation between two files,
/// undone; docs/protocol.md lists the functions. Use on the main thread.
namespace ProtocolFront {

/// Where every request finds its state; as the command line's global options give it.
struct Settings
{
    QDir repository;
    QString preferencesPath;
    QString logDirectory;
    int scanStallSeconds = 60;
};

/// Connects to the server and serves until the client's SHUTDOWN (status 0) or until the
/// client has gone and the running request has finished (status 1, with a message on the
/// error stream). A connection that fails gives status 1 and the socket's error text.
int serve(QString const & serverName, Settings const & settings, QNetworkAccessManager & network);

} // namespace ProtocolFront
