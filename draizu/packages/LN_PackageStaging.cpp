#include <draizu/packages/LN_PackageStaging_p.h>

#include <draizu/host/LN_Util.h>

#include <QFileInfo>

#include <archive.h>
#include <archive_entry.h>

#include <exception>

using namespace Qt::StringLiterals;

namespace {

// Entries go below "new"; earlier versions are moved aside into "old" until the commit holds.
QString const incoming = u"new"_s;
QString const replaced = u"old"_s;

QString stagingTemplate(QDir const & target)
{
    QDir().mkpath(target.path());
    return target.filePath(u".staging-XXXXXX"_s);
}

} // namespace

int LN_PackageStaging::inStaging_(auto && work)
{
    QString const previous = QDir::currentPath();
    QDir::setCurrent(folder_.path());
    int const status = work();
    QDir::setCurrent(previous);
    return status;
}

LN_PackageStaging::LN_PackageStaging(QDir const & target, int extractFlags)
    : target_(target.absolutePath())
    , folder_(stagingTemplate(target_))
{
    if (!folder_.isValid() || !QDir(folder_.path()).mkpath(incoming) || !QDir(folder_.path()).mkpath(replaced)) {
        errorText_ = u"Unable to create a staging folder in %1: %2"_s.arg(target_.path(), folder_.errorString());
        return;
    }
    writer_ = archive_write_disk_new();
    if (!writer_ || archive_write_disk_set_options(writer_, extractFlags) != ARCHIVE_OK
        || archive_write_disk_set_standard_lookup(writer_) != ARCHIVE_OK) {
        errorText_ = u"insufficient memory"_s;
        return;
    }
}

LN_PackageStaging::~LN_PackageStaging()
{
    if (writer_)
        inStaging_([this] { return archive_write_free(writer_); });
}

bool LN_PackageStaging::isValid() const
{
    return errorText_.isEmpty();
}

QString LN_PackageStaging::errorText() const
{
    return errorText_;
}

int LN_PackageStaging::extract(archive * reader, archive_entry * entry, QString const & path)
{
    archive_entry_set_pathname(entry, QString(incoming + u'/' + path).toLocal8Bit().constData());
    return inStaging_([&] { return archive_read_extract2(reader, entry, writer_); });
}

QString LN_PackageStaging::commit()
{
    if (inStaging_([this] { return archive_write_close(writer_); }) != ARCHIVE_OK)
        return QString::fromUtf8(archive_error_string(writer_));

    QDir const staged(QDir(folder_.path()).filePath(incoming));
    Moves moves;
    try {
        for (QString const & name : staged.entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot)) {
            QString const destination = target_.filePath(name);
            if (QFileInfo(destination).exists() || QFileInfo(destination).isSymLink()) {
                QString const aside = QDir(folder_.path()).filePath(replaced + u'/' + name);
                LN_Util::rename(destination, aside);
                moves.append({destination, aside});
            }
            LN_Util::rename(staged.filePath(name), destination);
            moves.append({staged.filePath(name), destination});
        }
    } catch (std::exception const & e) {
        undo_(moves);
        return QString::fromUtf8(e.what());
    }
    return QString();
}

void LN_PackageStaging::undo_(Moves const & moves)
{
    for (auto move = moves.crbegin(); move != moves.crend(); ++move) {
        try {
            LN_Util::rename(move->second, move->first);
        } catch (std::exception const &) {
            // The rest is still put back; what stays in the staging folder goes with it.
        }
    }
}
