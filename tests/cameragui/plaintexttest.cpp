// Texts of cameras as they are shown.
#include "tovplaintip.h"

#include <gtest/gtest.h>

namespace {

struct Case
{
    QString text;
    char const *line, *file;
};

TEST(PlainText, HasNoCharactersWithoutALook)
{
    for (auto const &[text, line, file] : {
             Case{QStringLiteral("Bench 2, left \u00b5 \U0001F4F7"), "Bench 2, left \u00b5 \U0001F4F7",
                  "Bench 2, left \u00b5 \U0001F4F7"},
             Case{QStringLiteral("a\nb\r\nc\td\u2028e\u2029f"), "a b  c d e f", "abcdef"},
             Case{QStringLiteral("\x01\x1b[31m\x7f\u0085red\u0090"), "[31m red", "[31mred"},
             Case{QStringLiteral("\u202Egpj.exe\u2066x\u2069\u200F\uFEFF\u061C\u00ADy"), "gpj.exexy", "gpj.exexy"},
             Case{QStringLiteral("\u0646\u200C\u0645"), "\u0646\u200C\u0645", "\u0646\u200C\u0645"},
             Case{QString(QChar(0xD800)) + u'x', "\uFFFDx", "\uFFFDx"},
             Case{QStringLiteral("../../etc/passwd"), "../../etc/passwd", "_.._.._etc_passwd"},
             Case{QString(QChar(0)) + QStringLiteral(".hidden"), ".hidden", "_.hidden"},
         }) {
        EXPECT_EQ(TovPlainLine(text).toStdString(), line);
        EXPECT_EQ(TovPlainFileName(text).toStdString(), file);
    }
    EXPECT_EQ(TovPlainLine(QString(10, u'x'), 10), QString(10, u'x'));
    EXPECT_EQ(TovPlainLine(QString(11, u'x'), 10), QString(9, u'x') + QChar(0x2026));
    EXPECT_EQ(TovPlainLine(QString(1 << 24, u'\n') + u'x', 10).size(), 10);
    EXPECT_EQ(TovPlainLine(QString(8, u'x') + QStringLiteral("\U0001F4F7\U0001F4F7"), 10),
              QString(8, u'x') + QChar(0x2026));
    EXPECT_LE(TovPlainFileName(QString(5000, QChar(0xE4))).toUtf8().size(), 200);
    EXPECT_LE(TovPlainFileName(QStringLiteral("\U0001F4F7").repeated(500)).toUtf8().size(), 200);
}

TEST(PlainText, IsNeverTakenForHtml)
{
    for (char const *plain : {"Mono 1\nAddress: 10.0.0.9", "a & b", "1 < 2\n<b>x</b>", ""})
        EXPECT_EQ(TovPlainTip(QString::fromUtf8(plain)).toStdString(), plain);
    EXPECT_EQ(TovPlainTip(QStringLiteral("<h1>Big</h1> & \x02\n<img src=x>")).toStdString(),
              "<p>&lt;h1&gt;Big&lt;/h1&gt; &amp; <br>&lt;img src=x&gt;</p>");
    EXPECT_EQ(TovPlainTip(QStringLiteral("a&lt;b>")).toStdString(), "<p>a&amp;lt;b&gt;</p>");
    // Words that are wider than the screen are broken.
    QString const part = QString(50, u'x') + QChar(0x200B);
    EXPECT_EQ(TovPlainTip(QString(151, u'x')), QStringLiteral("<p>") + part.repeated(3) + QStringLiteral("x</p>"));
}

} // namespace
