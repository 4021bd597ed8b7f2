#pragma once

#include "Console.h"

#include <QString>

#include <exception>

/// A command's failure with the exit status that tells its kind, thrown up to main.
struct CommandError : std::exception
{
    CommandError(ExitCode exitCode, QString text)
        : code(exitCode)
        , message(std::move(text))
    {
    }
    char const * what() const noexcept override { return "draizu-installer command failed"; }

    ExitCode code;
    QString message;
};
