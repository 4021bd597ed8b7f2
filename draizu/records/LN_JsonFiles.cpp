#include <draizu/records/LN_JsonFiles.h>
#include <draizu/records/LN_JsonFiles_p.h>

#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/core/LN_Exception.h>
#include <draizu/core/LN_Failures_p.h>
#include <draizu/core/LN_JsonUtils.h>
#include <draizu/io/LN_ExceptionFile.h>
#include <draizu/io/LN_FileOpener.h>
#include <draizu/io/LN_JsonFromFile.h>

#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

LN_Result<QJsonDocument> readJsonFile(QString const & path)
{
    if (path.isEmpty())
        return QJsonDocument();

    // Open, read and parse failures alike become the file error of the repository's readers.
    return LN_Failures::resultOf(std::error_code(1, QFileErrorCategory()), [&path] {
        LN_ExceptionFile file(path, QIODevice::ReadOnly | QIODevice::Text);
        return LN_Failures::valueOrThrow(LN_JsonUtils::jsonFromFile(file));
    });
}

void writeJsonFile(QJsonDocument const & document, QString const & path)
{
    QFileInfo(path).dir().mkpath(u"."_s);
    LN_ExceptionFile file(path, QIODevice::WriteOnly | QIODevice::Text);
    file.resize(0);
    file.write(document.toJson(QJsonDocument::Compact));
}

QString uniqueManifestPath(QString const & pattern, QDir const & directory)
{
    // Only the last marker takes the number: a "%1" or "%0" inside a feature name must not
    // swallow it, or every try would give the same path.
    qsizetype const marker = pattern.lastIndexOf(u"%1"_s);
    QString const head = marker < 0 ? pattern : pattern.first(marker);
    QString const tail = marker < 0 ? QString() : pattern.sliced(marker + 2);
    for (quint64 number = 1;; ++number) {
        QString const path = directory.filePath(head + QString::number(number) + tail);
        if (!QFile::exists(path))
            return path;
    }
}

QJsonDocument readInstallManifest(QString const & location, LN_FileOpener & opener)
{
    LN_FileOpener::TypedResult<LN_IODevice> const opened = opener.openFile(location);
    if (opened.isError())
        throw LN_Exception(u"Failed to open %1: %2"_s.arg(location, opened.message));
    return LN_Failures::valueOrThrow(LN_JsonUtils::jsonFromFile(*opened.device));
}
