#pragma once

#include <draizu/draizu_export.h>

#include <QString>
#include <QtGlobal>

/// The system a build is made for: OS, CPU, word size and the compiler tag of the build.
/// Its long form reads like "win64-vc143" or "linux_x86_64_gcc9.3".
struct DRAIZU_EXPORT LN_PlatformInfo
{
    enum Os : qint32 {
        Os_Windows = 0,
        Os_Linux = 1,
        Os_MacOs = 2,
        Os_Unknown = 3,
    };

    enum Cpu : qint32 {
        Cpu_X86 = 0,
        Cpu_Arm = 1,
        Cpu_Unknown = 2,
    };

    Os os = Os_Unknown;
    Cpu cpu = Cpu_Unknown;
    qint32 bits = -1;
    QString compiler;

    /// Parses the long form that toString writes. Anything it cannot read wholly gives the
    /// default record; OS and CPU words are case-sensitive.
    static LN_PlatformInfo fromString(QString const & text);

    /// Parses the catalogue's "os name" ("win64", "linux_x86_64", "macosx_arm64") and
    /// "compiler". The compiler is kept even when the OS name is not understood.
    static LN_PlatformInfo fromStrings(QString const & osName, QString const & compiler);

    /// The long form: osString and the compiler, joined by "-" on Windows and "_" elsewhere.
    QString toString() const;

    /// The short form without the compiler: "win64", "linux_x86_64", "macosx_arm64".
    QString osString() const;

    bool isValid() const;

    /// Whether builds for this platform run on this machine's CPU: x86 only.
    bool isCompatibleArchitecture() const;

    friend bool operator==(LN_PlatformInfo const & a, LN_PlatformInfo const & b)
    {
        return a.os == b.os && a.cpu == b.cpu && a.bits == b.bits && a.compiler == b.compiler;
    }
    friend bool operator!=(LN_PlatformInfo const & a, LN_PlatformInfo const & b) { return !(a == b); }
};
