#pragma once

#include <draizu/packages/LN_AvailablePackage.h>

#include <QList>
#include <QString>
#include <QUrl>

/// What one package document yields. Errors do not void the packages: the good ones are kept
/// beside a message for each bad one. A plain value record, copied at will.
struct LN_AvailablePackageResult
{
    /// The good packages, in document order.
    QList<LN_AvailablePackage> packages;
    /// Further package sources to read, in document order and without repeats; not yet
    /// checked for http or https.
    QList<QUrl> additionalServerUrls;
    /// One readable text per problem found, in document order.
    QList<QString> errors;
};
