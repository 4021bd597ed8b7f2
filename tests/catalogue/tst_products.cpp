#include <draizu/catalogue/LN_PlatformInfo.h>
#include <draizu/catalogue/LN_ProductID.h>

#include <QTest>

using namespace Qt::StringLiterals;
using P = LN_PlatformInfo;

class TestProducts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void products()
    {
        // Every written name reads back; so do catalogue and short names, in any case. Only the
        // catalogue rewrites the old labs name, and near misses are no product either.
        for (int product = Product_Orvanis; product <= Invalid; ++product)
            QCOMPARE(productFromString(QString::fromUtf8(productName(LN_ProductID(product)))), LN_ProductID(product));
        for (auto const & [name, product] : std::initializer_list<std::pair<QString, LN_ProductID>>{
                 {u"engine unity"_s, Product_EngineUnity}, {u"MAYA"_s, Product_EngineMaya},
                 {u"Orvanis Server"_s, Product_Oserver}, {u"Game Development Tools"_s, Invalid}, {u" Maya"_s, Invalid}})
            QCOMPARE(productFromString(name), product);
        QCOMPARE(productName(Product_Oserver), "oserver");
        QCOMPARE(productName(LN_ProductID(12)), "Invalid");
        // Oserver has no description row and falls back to once per machine.
        QCOMPARE(std::pair(productScope(Product_Oserver), productScope(Product_MarluxLabs)), std::pair(0, 1));
    }

    // Rows read the long form or the catalogue's "os name|compiler", and show what the record writes.
    void platforms_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");

        QTest::newRow("compiler keeps separators") << u"linux_x86_64-gcc_9-3"_s << u"linux_x86_64_gcc_9-3 valid x86"_s;
        QTest::newRow("one underscore cut after the os") << u"win_64-x"_s << u"win64-x valid x86"_s;
        QTest::newRow("no cpu, no bits") << u"linux___gcc"_s << u"linux_unknown_cpu_0_gcc"_s;
        QTest::newRow("os is case-sensitive") << u"Linux_x86_64_gcc"_s << u"unknown_os_unknown_cpu_-1_"_s;
        QTest::newRow("no separator after bits") << u"win64"_s << u"unknown_os_unknown_cpu_-1_"_s;
        QTest::newRow("unknown cpu drops the os") << u"linux_sparc64_gcc"_s << u"unknown_os_unknown_cpu_-1_"_s;
        QTest::newRow("windows takes no cpu word") << u"winarm64-vc"_s << u"unknown_os_unknown_cpu_-1_"_s;
        QTest::newRow("catalogue windows") << u"win64|vc"_s << u"win64-vc valid x86"_s;
        QTest::newRow("catalogue linux, no compiler") << u"linux_x86_64|"_s << u"linux_x86_64_ x86"_s;
        QTest::newRow("catalogue macos arm") << u"macosx_arm64|cc"_s << u"macosx_arm64_cc valid"_s;
        QTest::newRow("catalogue os case-sensitive") << u"LINUX_x86_64|cc"_s << u"unknown_os_x86_64_cc x86"_s;
        QTest::newRow("catalogue unknown cpu") << u"linux_arm32|cc"_s << u"linux_unknown_cpu_-1_cc"_s;
    }

    void platforms()
    {
        QFETCH(QString, text);
        QFETCH(QString, expected);

        QStringList const parts = text.split(u'|');
        P const info = parts.size() > 1 ? P::fromStrings(parts.at(0), parts.at(1)) : P::fromString(text);
        QCOMPARE(info.toString() + (info.isValid() ? u" valid"_s : u""_s)
                     + (info.isCompatibleArchitecture() ? u" x86"_s : u""_s), expected);
        if (info.isValid())
            QCOMPARE(P::fromString(info.toString()), info);
        QVERIFY((info != P{info.os, info.cpu, info.bits, info.compiler + u'x'})); // equality looks at the compiler too
    }
};

QTEST_GUILESS_MAIN(TestProducts)
#include "tst_products.moc"
