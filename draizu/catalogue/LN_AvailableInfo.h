#pragma once

#include <draizu/catalogue/LN_AvailableFeature.h>
#include <draizu/catalogue/LN_LicenseInfo.h>
#include <draizu/catalogue/LN_PlatformInfo.h>
#include <draizu/catalogue/LN_ProductID.h>
#include <draizu/core/LN_Result.h>
#include <draizu/draizu_export.h>

#include <QDate>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>
#include <QVersionNumber>

class LN_ComponentMetadata;
class LN_FileOpener;

/// One element of a build catalogue: one product or feature of one build. A catalogue is a
/// flat list of them; the elements of one build share its version, tags and platform and differ
/// in `feature`. A plain value record, copied at will; a default-constructed element stands for
/// nothing found.
///
/// The static members read catalogues: the parsers from JSON and offline installer archives,
/// and the retrieval functions from wherever a catalogue lies. Parsers throw LN_Exception for a
/// faulty catalogue, with the first fault found and no partial list; the retrieval functions
/// return failures to reach or read the data as errors and let the parsers' exceptions through.
/// Nothing is cached: every call reads its source again, and an archive costs one pass over its
/// headers.
///
/// The selection functions pick one element of a catalogue by version, release type and
/// product. They are pure, linear in the catalogue and never fail: when nothing fits they
/// return the default element, told by its null version. Release types are read from the
/// tags, exactly and case-sensitively; a non-empty build type marks a special build, never a
/// released one.
///
/// The parsers and queries may run on any thread; the functions that take an opener run on
/// the opener's thread.
struct DRAIZU_EXPORT LN_AvailableInfo
{
    /// The build's release date; null when the catalogue gives none or one that does not parse.
    QDate releaseDate;
    /// Free words of the build; "Alpha", "Beta" and "Production" tell how far it may be trusted.
    QStringList tags;
    /// The build's version.
    QVersionNumber version;
    /// The version of the engine API; catalogue format 1 only, and may be null.
    QVersionNumber oapiVersion;
    /// The oldest launcher of each major.minor line that can install this build.
    QList<QVersionNumber> minimumLauncherVersions;
    /// Empty for an ordinary build.
    QString buildType;
    /// Free text shown with the version; catalogue format 1 only.
    QString label;
    /// The system the build is made for.
    LN_PlatformInfo platform;
    /// The licence agreements of the build, carried for the acceptance check.
    QList<LN_LicenseInfo> licenses;
    /// The product or feature that this element stands for.
    LN_AvailableFeature feature;

    /// Parses the site's list of builds: a JSON array of catalogue blocks. Blocks of a format
    /// version this launcher does not know add nothing. Throws LN_Exception with the first fault
    /// found, and then returns nothing at all.
    static QList<LN_AvailableInfo> fromJsonDocument(QJsonDocument const & document);

    /// Reads the catalogue "data/overview.json" of an offline installer archive (ISO 9660, zip,
    /// tar, ... uncompressed). Empty for anything that is not a complete offline installer: an
    /// unreadable file, another kind of archive, a missing or unreadable catalogue, one above
    /// 1 GiB, or a content list that the catalogue names and the archive lacks. A readable
    /// catalogue with faulty content throws as fromJsonDocument does. Reads every header of
    /// the archive once and no entry's data but the catalogue's; nothing is cached.
    static QList<LN_AvailableInfo> fromFile(QString const & path);

    /// Whether fromFile finds an offline installer at the path, at the same cost; throws as
    /// fromFile does.
    static bool isOfflineArchiveFile(QString const & path);

    /// The builds for this system. A non-empty path is read as availableOrvanisVersionsFromPath
    /// does; the empty path asks the site for its list of this system's builds, through the
    /// opener's network access whatever its source. Failures to reach or parse the data come
    /// back as errors; a faulty catalogue throws LN_Exception.
    static LN_Result<QList<LN_AvailableInfo>> availableOrvanisVersions(LN_FileOpener & opener,
                                                                        QString const & path);

    /// The builds in an offline installer file, in the "overview.json" of a directory, or in
    /// the offline installer files of a directory without one, keeping those that run on this
    /// system (which may leave none). An installer directory's "overview.json" is taken at its
    /// word: the content lists it names are not looked for. Errors are in
    /// LN_AvailableInfoErrorCategory (an invalid file or no builds at all) or come from the JSON
    /// parser; a faulty catalogue throws LN_Exception, and so does an unreadable
    /// "overview.json".
    static LN_Result<QList<LN_AvailableInfo>> availableOrvanisVersionsFromPath(QString const & path);

    /// The catalogue of the build that the opener is set to, from its "overview.json". A
    /// version the site does not have is code 3 of LN_AvailableInfoErrorCategory, "The selected
    /// version is not available"; other failures are those of the opener and the parser.
    static LN_Result<QList<LN_AvailableInfo>> getProductInfo(LN_FileOpener & opener);

    /// Whether the element's feature or any of its sub-features, at any depth, has a shared
    /// file set.
    bool hasSofsFiles() const;

    /// The version with build type and label, in the form other programs match: the label
    /// stands twice and the platform not at all ("20.5.332-debug (beta) ( (beta))",
    /// "20.5.332 ()").
    QString toString() const;

    /// Whether the element's own product or one of its features, at any depth, has the name
    /// (exactly, case-sensitive).
    bool hasFeature(QString const & name) const;

    /// The same build: versions equal by QVersionNumber::compare (so 21.0 and 21.0.0 differ),
    /// build types equal and platforms of the same long form. Feature, tags and dates play no
    /// part, so the products of one build are equal.
    friend DRAIZU_EXPORT bool operator==(LN_AvailableInfo const & a, LN_AvailableInfo const & b);
    /// Negation of operator==.
    friend DRAIZU_EXPORT bool operator!=(LN_AvailableInfo const & a, LN_AvailableInfo const & b);
    /// By version, then build type (the empty one first), then the platform's long form, texts
    /// case-sensitively; equal builds are neither below nor above each other.
    friend DRAIZU_EXPORT bool operator<(LN_AvailableInfo const & a, LN_AvailableInfo const & b);
    /// b < a.
    friend DRAIZU_EXPORT bool operator>(LN_AvailableInfo const & a, LN_AvailableInfo const & b);
    /// a < b or a == b.
    friend DRAIZU_EXPORT bool operator<=(LN_AvailableInfo const & a, LN_AvailableInfo const & b);
    /// b < a or b == a.
    friend DRAIZU_EXPORT bool operator>=(LN_AvailableInfo const & a, LN_AvailableInfo const & b);

    /// The first element that is the component's build: its product under any of its names,
    /// the same version, platform and build type. Tags are not looked at, so a build re-tagged
    /// since it was installed still matches. The default element when none is.
    static LN_AvailableInfo getMatchingVersion(LN_ComponentMetadata const & component,
                                               QList<LN_AvailableInfo> const & catalogue);

    /// The first element that stands for the product or feature of exactly that name; the
    /// default element when none does.
    static LN_AvailableInfo getProduct(QList<LN_AvailableInfo> const & catalogue, QString const & name);

    /// The newest build that is neither "Alpha" nor "Beta" nor of a special build type,
    /// production builds included. Of equal versions the first in the catalogue wins, whatever
    /// product it stands for: narrow the catalogue to one product first where that matters. The
    /// default element when none qualifies.
    static LN_AvailableInfo latestDailyVersion(QList<LN_AvailableInfo> const & catalogue);

    /// As latestDailyVersion, among the builds tagged "Production" only.
    static LN_AvailableInfo latestProductionVersion(QList<LN_AvailableInfo> const & catalogue);

    /// The newest "Production" build of the product (its exact name) and build type whose
    /// version is at least `minimum`; "Alpha" and "Beta" are not looked at. Of equal versions
    /// the last in the catalogue wins, and `minimum` itself qualifies, so an installation at
    /// the newest version gets its own build back. The default element when none qualifies.
    static LN_AvailableInfo upgradeVersionFor(QString const & product, QVersionNumber const & minimum,
                                              QString const & buildType, QList<LN_AvailableInfo> const & catalogue);

    /// Whether this launcher, at launcherVersion, can install the build.
    bool launcherCanInstall() const;

    /// Whether a launcher on the major.minor line of `launcher` can install the build. Minimums
    /// of older lines are passed over, in stored order, and the first that is not decides: one
    /// of a newer line refuses, and one of the same line is held against this library's
    /// launcherVersion, the argument only picking the line. Past them all the answer is yes,
    /// but a build without any minimum cannot be installed.
    bool launcherCanInstall(QVersionNumber const & launcher) const;

    /// Tagged "Production", and neither "Alpha" nor "Beta" nor of a special build type.
    bool isProductionBuild() const;

    /// Whether the element stands for the product or feature of exactly that name.
    bool hasProduct(QString const & name) const;
    /// Whether the element's name is one of the product's, case ignored.
    bool hasProduct(LN_ProductID const & product) const;

private:
    static LN_AvailableInfo latestReleasedVersion_(QList<LN_AvailableInfo> const & catalogue, bool productionOnly);
    static QList<LN_AvailableInfo> fromJson_(QJsonObject const & block);
    static QList<LN_AvailableInfo> fromFormat0_(QJsonObject const & block);
    static QList<LN_AvailableInfo> fromFormat1_(QJsonObject const & block);
    static QList<LN_AvailableInfo> fromProduct_(QJsonObject const & product, bool gold);
    static LN_Result<QList<LN_AvailableInfo>> fromDirectory_(QString const & path);
    static QStringList parseTags_(QJsonArray const & array);
};
