#pragma once

#include <QString>

/// How a service manager has one service configured, as LN_Service::queryService reads it: a
/// plain record, true at the moment it was read.
struct LN_ServiceConfig
{
    /// When the manager starts the service by itself.
    enum StartType : int {
        Start_Auto = 2,     ///< whenever the manager starts
        Start_Demand = 3,   ///< only when asked to
        Start_Disabled = 4, ///< not at all
    };

    /// The program and its arguments, separated by blanks, a word that holds a blank in double
    /// quotes.
    QString binaryPath;
    /// The account the service runs under; empty for the manager's own.
    QString account;
    /// When the service is started without being asked.
    StartType startType = Start_Demand;
    /// The name the manager shows.
    QString displayName;
};
