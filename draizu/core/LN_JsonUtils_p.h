#pragma once

#include <draizu/core/LN_Result.h>

#include <QByteArray>
#include <QJsonDocument>
#include <QString>

namespace LN_JsonUtils {

/// Parses a document read from `name`; a parse failure names it beside line and column.
LN_Result<QJsonDocument> parseNamed(QByteArray const & bytes, QString const & name);

} // namespace LN_JsonUtils
