#pragma once

#include <draizu/draizu_export.h>

#include <QString>
#include <QtGlobal>

/// The system a build is made for: OS, CPU, word size and the compiler tag of the build. Its
/// long form reads like "win64-vc143" or "linux_x86_64_gcc9.3", and fromString reads back every
/// valid record that toString writes. A plain value record, copied at will; the default one is
/// the unknown platform. Parsing never throws: text it cannot read gives an unknown platform.
/// Any thread may use its own records.
struct DRAIZU_EXPORT LN_PlatformInfo
{
    /// The operating system.
    enum Os : qint32 {
        Os_Windows = 0,
        Os_Linux = 1,
        Os_MacOs = 2,
        Os_Unknown = 3,
    };

    /// The processor family.
    enum Cpu : qint32 {
        Cpu_X86 = 0,
        Cpu_Arm = 1,
        Cpu_Unknown = 2,
    };

    Os os = Os_Unknown;    ///< the operating system
    Cpu cpu = Cpu_Unknown; ///< the processor family
    qint32 bits = -1;      ///< the word size, 64 in every real build; -1 when unknown
    QString compiler;      ///< compiler tag of the build, free text

    /// Parses the long form that toString writes. Anything it cannot read wholly gives the
    /// default record; OS and CPU words are case-sensitive.
    static LN_PlatformInfo fromString(QString const & text);

    /// Parses the catalogue's "os name" ("win64", "linux_x86_64", "macosx_arm64") and
    /// "compiler", case-sensitive. An OS name it cannot read leaves OS, CPU or word size
    /// unknown; the compiler is kept in every case.
    static LN_PlatformInfo fromStrings(QString const & osName, QString const & compiler);

    /// The long form: osString and the compiler, joined by "-" on Windows and "_" elsewhere;
    /// the separator stays when the compiler is empty ("win64-").
    QString toString() const;

    /// The short form without the compiler: "win64", "linux_x86_64", "macosx_arm64"; the CPU
    /// plays no part on Windows. Unknown parts read "unknown_os" and "unknown_cpu".
    QString osString() const;

    /// True when OS and CPU are known, the word size is at least 1 and the compiler is given.
    bool isValid() const;

    /// Whether builds for this platform run on this machine's CPU: x86 only, whatever the OS.
    bool isCompatibleArchitecture() const;

    /// All four fields equal, the compiler compared case-sensitively.
    friend bool operator==(LN_PlatformInfo const & a, LN_PlatformInfo const & b)
    {
        return a.os == b.os && a.cpu == b.cpu && a.bits == b.bits && a.compiler == b.compiler;
    }
    /// Any field differs.
    friend bool operator!=(LN_PlatformInfo const & a, LN_PlatformInfo const & b) { return !(a == b); }
};
