#pragma once

#include <draizu/catalogue/LN_AvailableInfo.h>
#include <draizu/draizu_export.h>
#include <draizu/options/LN_InstallerOptions.h>

#include <QString>

#include <optional>
#include <utility>

class LN_FileOpener;

/// What the command line learns about offline installers, from the disk and, for the empty
/// path, from the site through the opener. Each question remembers its last path and answer:
/// asking again with the same path, compared exactly, touches neither disk nor network, and a
/// failure is remembered like a success. Another path replaces the remembered one.
///
/// Holds the opener without owning it; it must outlive the reader. Not thread-safe.
class DRAIZU_EXPORT LN_DiskReader : public LN_InstallerOptions::DiskReader
{
public:
    /// Reads through the opener, which is not owned.
    explicit LN_DiskReader(LN_FileOpener & opener);

    /// Whether the path names a file, as QFileInfo::isFile. Never fails.
    bool isFile(QString const & path) override;
    /// LN_AvailableInfo::availableOrvanisVersions of the path: its failures come back as they
    /// are, and a faulty catalogue throws LN_Exception (and is not remembered).
    LN_Result<QList<LN_AvailableInfo>> availableInfos(QString const & path) override;

private:
    LN_FileOpener & opener_;
    std::optional<std::pair<QString, bool>> lastIsFile_;
    std::optional<std::pair<QString, LN_Result<QList<LN_AvailableInfo>>>> lastAvailable_;
};
