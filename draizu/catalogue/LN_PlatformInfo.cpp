#include <draizu/catalogue/LN_PlatformInfo.h>

#include <QRegularExpression>

#include <array>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

QString osWord(LN_PlatformInfo::Os os)
{
    switch (os) {
    case LN_PlatformInfo::Os_Windows:
        return u"win"_s;
    case LN_PlatformInfo::Os_Linux:
        return u"linux"_s;
    case LN_PlatformInfo::Os_MacOs:
        return u"macosx"_s;
    case LN_PlatformInfo::Os_Unknown:
        break;
    }
    return u"unknown_os"_s;
}

QString cpuWord(LN_PlatformInfo::Cpu cpu)
{
    switch (cpu) {
    case LN_PlatformInfo::Cpu_X86:
        return u"x86"_s;
    case LN_PlatformInfo::Cpu_Arm:
        return u"arm"_s;
    case LN_PlatformInfo::Cpu_Unknown:
        break;
    }
    return u"unknown_cpu"_s;
}

// Cuts the first word of `words` that begins `text` off its front and gives its value.
template <typename Enum, std::size_t N>
bool takePrefix(QString & text, std::array<std::pair<QLatin1StringView, Enum>, N> const & words, Enum & value)
{
    for (auto const & [word, wordValue] : words) {
        if (text.startsWith(word)) {
            text.remove(0, word.size());
            value = wordValue;
            return true;
        }
    }
    return false;
}

} // namespace

LN_PlatformInfo LN_PlatformInfo::fromString(QString const & text)
{
    static QRegularExpression const bitsAndCompiler(u"^(\\d*)[-_](.*)"_s);
    static constexpr std::array<std::pair<QLatin1StringView, Os>, 3> osWords = {{
        {QLatin1StringView("win"), Os_Windows},
        {QLatin1StringView("linux"), Os_Linux},
        {QLatin1StringView("macosx"), Os_MacOs},
    }};
    static constexpr std::array<std::pair<QLatin1StringView, Cpu>, 2> cpuWords = {{
        {QLatin1StringView("x86"), Cpu_X86},
        {QLatin1StringView("arm"), Cpu_Arm},
    }};

    LN_PlatformInfo info;
    QString rest = text;
    if (!takePrefix(rest, osWords, info.os))
        return LN_PlatformInfo();
    if (rest.startsWith(u'_'))
        rest.remove(0, 1);

    // Windows builds are x86 whatever the text says: "win64" carries no CPU word.
    if (info.os == Os_Windows)
        info.cpu = Cpu_X86;
    else
        takePrefix(rest, cpuWords, info.cpu);

    if (rest.startsWith(u'_') || rest.startsWith(u'-'))
        rest.remove(0, 1);

    QRegularExpressionMatch const match = bitsAndCompiler.match(rest);
    if (!match.hasMatch())
        return LN_PlatformInfo();
    info.bits = match.capturedView(1).toInt();
    info.compiler = match.captured(2);
    return info;
}

LN_PlatformInfo LN_PlatformInfo::fromStrings(QString const & osName, QString const & compiler)
{
    static QRegularExpression const osAndCpu(u"^([A-Za-z]+)_(\\w+)$"_s);

    LN_PlatformInfo info;
    info.compiler = compiler;
    if (osName == u"win64"_s) {
        info.os = Os_Windows;
        info.cpu = Cpu_X86;
        info.bits = 64;
        return info;
    }

    QRegularExpressionMatch const match = osAndCpu.match(osName);
    if (!match.hasMatch())
        return info;

    QStringView const os = match.capturedView(1);
    if (os == u"linux"_s)
        info.os = Os_Linux;
    else if (os == u"macosx"_s)
        info.os = Os_MacOs;

    QStringView const cpu = match.capturedView(2);
    if (cpu == u"x86_64"_s) {
        info.cpu = Cpu_X86;
        info.bits = 64;
    } else if (cpu == u"arm64"_s) {
        info.cpu = Cpu_Arm;
        info.bits = 64;
    }
    return info;
}

QString LN_PlatformInfo::osString() const
{
    if (os == Os_Windows)
        return osWord(os) + QString::number(bits);
    // Arm words run into the word size ("arm64"), x86 ones keep a separator ("x86_64").
    QString const separator = cpu == Cpu_Arm ? QString() : u"_"_s;
    return osWord(os) + u'_' + cpuWord(cpu) + separator + QString::number(bits);
}

QString LN_PlatformInfo::toString() const
{
    return osString() + (os == Os_Windows ? u'-' : u'_') + compiler;
}

bool LN_PlatformInfo::isValid() const
{
    return os != Os_Unknown && cpu != Cpu_Unknown && bits >= 1 && !compiler.isEmpty();
}

bool LN_PlatformInfo::isCompatibleArchitecture() const
{
    return cpu == Cpu_X86;
}
