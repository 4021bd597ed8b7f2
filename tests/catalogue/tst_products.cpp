#include <draizu/catalogue/LN_PlatformInfo.h>
#include <draizu/catalogue/LN_ProductID.h>

#include <QTest>

using namespace Qt::StringLiterals;

using P = LN_PlatformInfo;
Q_DECLARE_METATYPE(LN_PlatformInfo)

namespace {

P platform(P::Os os, P::Cpu cpu, int bits, QString const & compiler)
{
    return P{os, cpu, bits, compiler};
}

} // namespace

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
    void name_data();
    void name();
    void writtenNamesReadBack();
    void platformFromString_data();
    void platformFromString();
    void platformFromStrings_data();
    void platformFromStrings();
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
    QTest::newRow("upper case") << u"MAYA"_s << int(Product_EngineMaya);
    QTest::newRow("lower case catalogue name") << u"engine maya"_s << int(Product_EngineMaya);
    QTest::newRow("lower case written name") << u"maya plug-in"_s << int(Product_EngineMaya);
    QTest::newRow("oserver long name") << u"Orvanis Server"_s << int(Product_Oserver);
    QTest::newRow("daemon name") << u"MRLXNETD"_s << int(Product_LicenseServer);
    QTest::newRow("oqueue short name") << u"oqserver"_s << int(Product_OQueueServer);
    QTest::newRow("old labs name is the catalogue's business") << u"Game Development Tools"_s << int(Invalid);
    QTest::newRow("empty") << u""_s << int(Invalid);
    QTest::newRow("null") << QString() << int(Invalid);
    QTest::newRow("leading blank") << u" Maya"_s << int(Invalid);
    QTest::newRow("prefix of a name") << u"Orvanis Serv"_s << int(Invalid);
    QTest::newRow("word Invalid") << u"Invalid"_s << int(Invalid);
}

void TestProducts::fromString()
{
    QFETCH(QString, text);
    QFETCH(int, product);
    QCOMPARE(int(productFromString(text)), product);
}

void TestProducts::name_data()
{
    QTest::addColumn<int>("product");
    QTest::addColumn<QString>("name");

    QTest::newRow("orvanis") << 0 << u"Orvanis"_s;
    QTest::newRow("plug-in") << 2 << u"Maya Plug-In"_s;
    QTest::newRow("oserver writes its short name") << 5 << u"oserver"_s;
    QTest::newRow("last product") << 10 << u"Optix"_s;
    QTest::newRow("invalid") << 11 << u"Invalid"_s;
    QTest::newRow("past the table") << 12 << u"Invalid"_s;
    QTest::newRow("negative") << -1 << u"Invalid"_s;
}

void TestProducts::name()
{
    QFETCH(int, product);
    QFETCH(QString, name);
    QCOMPARE(QString::fromUtf8(productName(LN_ProductID(product))), name);
}

void TestProducts::writtenNamesReadBack()
{
    for (int product = Product_Orvanis; product <= Invalid; ++product)
        QCOMPARE(int(productFromString(QString::fromUtf8(productName(LN_ProductID(product))))), product);
    QCOMPARE(productScope(Product_OQueueServer), 0);
    QCOMPARE(productScope(Product_MarluxLabs), 1);
    QCOMPARE(productScope(Product_Oserver), 0);
}

void TestProducts::platformFromString_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<P>("expected");

    P const none;
    QTest::newRow("windows") << u"win64-vc143"_s << platform(P::Os_Windows, P::Cpu_X86, 64, u"vc143"_s);
    QTest::newRow("linux") << u"linux_x86_64_gcc9.3"_s << platform(P::Os_Linux, P::Cpu_X86, 64, u"gcc9.3"_s);
    QTest::newRow("macos arm") << u"macosx_arm64_clang"_s << platform(P::Os_MacOs, P::Cpu_Arm, 64, u"clang"_s);
    QTest::newRow("compiler keeps separators")
        << u"linux_x86_64-gcc_9-3"_s << platform(P::Os_Linux, P::Cpu_X86, 64, u"gcc_9-3"_s);
    QTest::newRow("one underscore cut") << u"win_64-x"_s << platform(P::Os_Windows, P::Cpu_X86, 64, u"x"_s);
    QTest::newRow("no cpu, no bits") << u"linux___gcc"_s << platform(P::Os_Linux, P::Cpu_Unknown, 0, u"gcc"_s);
    QTest::newRow("empty") << QString() << none;
    QTest::newRow("unknown os") << u"solaris_x86_64_cc"_s << none;
    QTest::newRow("os is case-sensitive") << u"Linux_x86_64_gcc"_s << none;
    QTest::newRow("no separator after bits") << u"win64"_s << none;
    QTest::newRow("unknown cpu drops the os") << u"linux_sparc64_gcc"_s << none;
    QTest::newRow("windows takes no cpu word") << u"winarm64-vc"_s << none;
}

void TestProducts::platformFromString()
{
    QFETCH(QString, text);
    QFETCH(P, expected);
    QCOMPARE(P::fromString(text), expected);
}

void TestProducts::platformFromStrings_data()
{
    QTest::addColumn<QString>("osName");
    QTest::addColumn<P>("expected");

    QTest::newRow("windows") << u"win64"_s << platform(P::Os_Windows, P::Cpu_X86, 64, u"cc"_s);
    QTest::newRow("linux") << u"linux_x86_64"_s << platform(P::Os_Linux, P::Cpu_X86, 64, u"cc"_s);
    QTest::newRow("macos arm") << u"macosx_arm64"_s << platform(P::Os_MacOs, P::Cpu_Arm, 64, u"cc"_s);
    QTest::newRow("os is case-sensitive") << u"LINUX_x86_64"_s << platform(P::Os_Unknown, P::Cpu_X86, 64, u"cc"_s);
    QTest::newRow("unknown cpu") << u"linux_arm32"_s << platform(P::Os_Linux, P::Cpu_Unknown, -1, u"cc"_s);
    QTest::newRow("windows 32 bits") << u"win32"_s << platform(P::Os_Unknown, P::Cpu_Unknown, -1, u"cc"_s);
    QTest::newRow("trailing blank") << u"linux_x86_64 "_s << platform(P::Os_Unknown, P::Cpu_Unknown, -1, u"cc"_s);
}

void TestProducts::platformFromStrings()
{
    QFETCH(QString, osName);
    QFETCH(P, expected);
    QCOMPARE(P::fromStrings(osName, u"cc"_s), expected);
}

void TestProducts::platformTextForms_data()
{
    QTest::addColumn<P>("info");
    QTest::addColumn<QString>("longForm");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<bool>("compatible");

    QTest::newRow("default") << P() << u"unknown_os_unknown_cpu_-1_"_s << false << false;
    QTest::newRow("windows") << platform(P::Os_Windows, P::Cpu_X86, 64, u"vc143"_s) << u"win64-vc143"_s << true << true;
    QTest::newRow("windows ignores its cpu")
        << platform(P::Os_Windows, P::Cpu_Arm, 64, u"vc"_s) << u"win64-vc"_s << true << false;
    QTest::newRow("no compiler") << platform(P::Os_Windows, P::Cpu_X86, 64, QString()) << u"win64-"_s << false << true;
    QTest::newRow("linux")
        << platform(P::Os_Linux, P::Cpu_X86, 64, u"gcc 12"_s) << u"linux_x86_64_gcc 12"_s << true << true;
    QTest::newRow("linux arm")
        << platform(P::Os_Linux, P::Cpu_Arm, 64, u"gcc"_s) << u"linux_arm64_gcc"_s << true << false;
    QTest::newRow("macos 32 bits")
        << platform(P::Os_MacOs, P::Cpu_X86, 32, u"clang"_s) << u"macosx_x86_32_clang"_s << true << true;
    QTest::newRow("unknown cpu")
        << platform(P::Os_Linux, P::Cpu_Unknown, 64, u"gcc"_s) << u"linux_unknown_cpu_64_gcc"_s << false << false;
    QTest::newRow("zero bits")
        << platform(P::Os_Linux, P::Cpu_X86, 0, u"gcc"_s) << u"linux_x86_0_gcc"_s << false << true;
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
    if (valid && (info.os != P::Os_Windows || info.cpu == P::Cpu_X86))
        QCOMPARE(P::fromString(longForm), info);
    QVERIFY(info != platform(info.os, info.cpu, info.bits, info.compiler.toUpper() + u'x'));
}

QTEST_GUILESS_MAIN(TestProducts)
#include "tst_products.moc"
