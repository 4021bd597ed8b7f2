#include <draizu/catalogue/LN_PlatformInfo.h>
#include <draizu/catalogue/LN_ProductID.h>

#include <QTest>

using namespace Qt::StringLiterals;

using P = LN_PlatformInfo;
Q_DECLARE_METATYPE(LN_PlatformInfo)
using enum LN_PlatformInfo::Os;
using enum LN_PlatformInfo::Cpu;

namespace QTest {
template <>
char * toString(P const & info)
{
    return QTest::toString(
        u"os %1 cpu %2 bits %3 \"%4\""_s.arg(int(info.os)).arg(int(info.cpu)).arg(info.bits).arg(info.compiler));
}
} // namespace QTest

class TestProducts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fromString_data();
    void fromString();
    void writtenNames();
    void platformReading_data();
    void platformReading();
    void platformTextForms_data();
    void platformTextForms();
};

void TestProducts::fromString_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("product");

    QTest::newRow("written name") << u"3ds Max Plug-In"_s << int(Product_Engine3dsMax);
    QTest::newRow("catalogue name") << u"Engine Unity"_s << int(Product_EngineUnity);
    QTest::newRow("short name") << u"Unreal"_s << int(Product_EngineUnreal);
    QTest::newRow("case ignored") << u"MAYA"_s << int(Product_EngineMaya);
    QTest::newRow("oserver long name") << u"Orvanis Server"_s << int(Product_Oserver);
    QTest::newRow("old labs name is the catalogue's business") << u"Game Development Tools"_s << int(Invalid);
    QTest::newRow("empty") << QString() << int(Invalid);
    QTest::newRow("leading blank") << u" Maya"_s << int(Invalid);
    QTest::newRow("prefix of a name") << u"Orvanis Serv"_s << int(Invalid);
}

void TestProducts::fromString()
{
    QFETCH(QString, text);
    QFETCH(int, product);
    QCOMPARE(int(productFromString(text)), product);
}

void TestProducts::writtenNames()
{
    for (int product = Product_Orvanis; product <= Invalid; ++product)
        QCOMPARE(int(productFromString(QString::fromUtf8(productName(LN_ProductID(product))))), product);
    QCOMPARE(productName(Product_EngineMaya), "Maya Plug-In");
    QCOMPARE(productName(Product_Oserver), "oserver");
    QCOMPARE(productName(LN_ProductID(12)), "Invalid");
    // Oserver has no description row and falls back to once per machine.
    QCOMPARE(productScope(Product_Oserver), 0);
    QCOMPARE(productScope(Product_MarluxLabs), 1);
}

void TestProducts::platformReading_data()
{
    QTest::addColumn<QString>("text");
    // Null for the long form, otherwise the text is the catalogue's "os name" with this compiler.
    QTest::addColumn<QString>("compiler");
    QTest::addColumn<P>("expected");

    QString const longForm;
    QTest::newRow("windows") << u"win64-vc143"_s << longForm << P{Os_Windows, Cpu_X86, 64, u"vc143"_s};
    QTest::newRow("macos arm") << u"macosx_arm64_clang"_s << longForm << P{Os_MacOs, Cpu_Arm, 64, u"clang"_s};
    QTest::newRow("linux, compiler keeps separators")
        << u"linux_x86_64-gcc_9-3"_s << longForm << P{Os_Linux, Cpu_X86, 64, u"gcc_9-3"_s};
    QTest::newRow("no cpu, no bits") << u"linux___gcc"_s << longForm << P{Os_Linux, Cpu_Unknown, 0, u"gcc"_s};
    QTest::newRow("empty") << QString() << longForm << P();
    QTest::newRow("os is case-sensitive") << u"Linux_x86_64_gcc"_s << longForm << P();
    QTest::newRow("no separator after bits") << u"win64"_s << longForm << P();
    QTest::newRow("unknown cpu drops the os") << u"linux_sparc64_gcc"_s << longForm << P();
    QTest::newRow("windows takes no cpu word") << u"winarm64-vc"_s << longForm << P();

    QString const cc = u"cc"_s;
    QTest::newRow("catalogue windows") << u"win64"_s << cc << P{Os_Windows, Cpu_X86, 64, cc};
    QTest::newRow("catalogue macos arm") << u"macosx_arm64"_s << cc << P{Os_MacOs, Cpu_Arm, 64, cc};
    QTest::newRow("catalogue os is case-sensitive") << u"LINUX_x86_64"_s << cc << P{Os_Unknown, Cpu_X86, 64, cc};
    QTest::newRow("catalogue unknown cpu") << u"linux_arm32"_s << cc << P{Os_Linux, Cpu_Unknown, -1, cc};
    QTest::newRow("catalogue windows 32 bits") << u"win32"_s << cc << P{Os_Unknown, Cpu_Unknown, -1, cc};
    QTest::newRow("catalogue trailing blank") << u"linux_x86_64 "_s << cc << P{Os_Unknown, Cpu_Unknown, -1, cc};
}

void TestProducts::platformReading()
{
    QFETCH(QString, text);
    QFETCH(QString, compiler);
    QFETCH(P, expected);
    QCOMPARE(compiler.isNull() ? P::fromString(text) : P::fromStrings(text, compiler), expected);
}

void TestProducts::platformTextForms_data()
{
    QTest::addColumn<P>("info");
    QTest::addColumn<QString>("longForm");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<bool>("compatible");

    QTest::newRow("default") << P() << u"unknown_os_unknown_cpu_-1_"_s << false << false;
    QTest::newRow("windows") << P{Os_Windows, Cpu_X86, 64, u"vc143"_s} << u"win64-vc143"_s << true << true;
    QTest::newRow("windows ignores its cpu") << P{Os_Windows, Cpu_Arm, 64, u"vc"_s} << u"win64-vc"_s << true << false;
    QTest::newRow("no compiler") << P{Os_Windows, Cpu_X86, 64, QString()} << u"win64-"_s << false << true;
    QTest::newRow("linux arm") << P{Os_Linux, Cpu_Arm, 64, u"gcc"_s} << u"linux_arm64_gcc"_s << true << false;
    QTest::newRow("macos 32 bits") << P{Os_MacOs, Cpu_X86, 32, u"clang"_s} << u"macosx_x86_32_clang"_s << true << true;
    QTest::newRow("unknown cpu") << P{Os_Linux, Cpu_Unknown, 64, u"gcc"_s} << u"linux_unknown_cpu_64_gcc"_s << false
                                 << false;
    QTest::newRow("zero bits") << P{Os_Linux, Cpu_X86, 0, u"gcc"_s} << u"linux_x86_0_gcc"_s << false << true;
}

void TestProducts::platformTextForms()
{
    QFETCH(P, info);
    QFETCH(QString, longForm);
    QFETCH(bool, valid);
    QFETCH(bool, compatible);

    QCOMPARE(info.toString(), longForm);
    QVERIFY(longForm.startsWith(info.osString()));
    QCOMPARE(info.isValid(), valid);
    QCOMPARE(info.isCompatibleArchitecture(), compatible);
    if (valid && (info.os != Os_Windows || info.cpu == Cpu_X86))
        QCOMPARE(P::fromString(longForm), info);
    // Equality must look at the compiler, or the rows above could not tell compilers apart.
    QVERIFY((info != P{info.os, info.cpu, info.bits, info.compiler + u'x'}));
}

QTEST_GUILESS_MAIN(TestProducts)
#include "tst_products.moc"
