#include <draizu/platform/LN_Accounts_p.h>

#include <QByteArray>

#include <cerrno>
#include <vector>

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

namespace {

constexpr std::size_t firstBufferSize = 1024;
constexpr std::size_t largestBufferSize = 1024 * 1024;

// The *_r lookups report a short buffer with ERANGE; a directory service can hold entries
// larger than the system's suggested size, so the buffer grows until the entry fits.
template <typename Record, typename Lookup>
int lookup(Lookup const & call, Record * record, std::vector<char> & buffer)
{
    buffer.resize(firstBufferSize);
    for (;;) {
        Record * found = nullptr;
        int const error = call(record, buffer.data(), buffer.size(), &found);
        if (error == ERANGE && buffer.size() < largestBufferSize) {
            buffer.resize(buffer.size() * 2);
            continue;
        }
        if (error != 0)
            return error;
        return found ? 0 : ENOENT;
    }
}

} // namespace

QString LN_Accounts::currentUserName()
{
    passwd record {};
    std::vector<char> buffer;
    uid_t const user = ::geteuid();
    int const error = lookup<passwd>(
        [user](passwd * r, char * b, std::size_t s, passwd ** f) { return ::getpwuid_r(user, r, b, s, f); }, &record,
        buffer);
    return error == 0 ? QString::fromLocal8Bit(record.pw_name) : QString();
}

int LN_Accounts::lookupUser(QString const & name, LN_Sid * sid)
{
    QByteArray const key = name.toLocal8Bit();
    passwd record {};
    std::vector<char> buffer;
    int const error = lookup<passwd>(
        [&key](passwd * r, char * b, std::size_t s, passwd ** f) { return ::getpwnam_r(key.constData(), r, b, s, f); },
        &record, buffer);
    if (error == 0)
        *sid = LN_Sid{LN_Sid::Sid_User, static_cast<std::uint32_t>(record.pw_uid)};
    return error;
}

int LN_Accounts::lookupGroup(QString const & name, LN_Sid * sid)
{
    QByteArray const key = name.toLocal8Bit();
    group record {};
    std::vector<char> buffer;
    int const error = lookup<group>(
        [&key](group * r, char * b, std::size_t s, group ** f) { return ::getgrnam_r(key.constData(), r, b, s, f); },
        &record, buffer);
    if (error == 0)
        *sid = LN_Sid{LN_Sid::Sid_Group, static_cast<std::uint32_t>(record.gr_gid)};
    return error;
}
