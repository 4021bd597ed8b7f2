#pragma once

#include <draizu/core/LN_JsonUtils.h>
#include <draizu/core/LN_Result.h>
#include <draizu/draizu_export.h>

#include <QJsonDocument>

class LN_ExceptionFile;
class LN_IODevice;

/// JSON documents read from the library's files and streams; the parsing itself is
/// LN_JsonUtils::jsonFromBytes.
namespace LN_JsonUtils {

/// Reads and parses a whole file; the file's read failures throw, parse failures are returned
/// with the file's name in the text.
DRAIZU_EXPORT LN_Result<QJsonDocument> jsonFromFile(LN_ExceptionFile & file);

/// Reads an opened stream to its end and parses it. A failed read returns the stream's own
/// error; parse failures are returned with the stream's name in the text.
DRAIZU_EXPORT LN_Result<QJsonDocument> jsonFromFile(LN_IODevice & device);

} // namespace LN_JsonUtils
