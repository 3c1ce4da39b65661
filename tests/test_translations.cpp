// The built-in catalogues: present as resources, complete for every text the library passes through tr,
// and used once a host installs a translator.
#include <vexa/Vexa.h>
#include <vexa/imp/detail/frame.h>

#include "support/LogCapture.h"

#include <QCoreApplication>
#include <QDirIterator>
#include <QFile>
#include <QRegularExpression>
#include <QTranslator>

#include <gtest/gtest.h>

#include <set>

using namespace VEXA;

namespace {

std::set<QString> trTextsInSources()
{
    std::set<QString> texts;
    const QRegularExpression trCall(QStringLiteral(R"(QObject::tr\(\s*"((?:[^"\\]|\\.)*)\"\s*\))"));
    QDirIterator it(QStringLiteral(VEXA_SOURCE_DIR "/vexa"), {"*.cpp", "*.h"}, QDir::Files,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        QFile file(it.next());
        if (!file.open(QIODevice::ReadOnly))
            continue;
        const QString source = QString::fromUtf8(file.readAll());
        for (const QRegularExpressionMatch& m : trCall.globalMatch(source))
            texts.insert(m.captured(1).replace(QStringLiteral("\\\""), QStringLiteral("\"")));
    }
    return texts;
}

TEST(Translations, BothCataloguesAreBuiltIn)
{
    for (const char* path : {":/Vexa/res/lang/vexa_96.qm", ":/Vexa/res/lang/vexa_31.qm"}) {
        QTranslator translator;
        EXPECT_TRUE(translator.load(QString::fromLatin1(path))) << path;
        EXPECT_FALSE(translator.isEmpty()) << path;
    }
}

TEST(Translations, EveryTextPassedThroughTrHasARussianAndAnEnglishEntry)
{
    QTranslator russian, english;
    ASSERT_TRUE(russian.load(":/Vexa/res/lang/vexa_96.qm"));
    ASSERT_TRUE(english.load(":/Vexa/res/lang/vexa_31.qm"));
    const std::set<QString> texts = trTextsInSources();
    ASSERT_GE(texts.size(), 5u) << "the scan of the sources found too few texts";
    for (const QString& text : texts) {
        const QByteArray source = text.toUtf8();
        const QString ru = russian.translate("QObject", source.constData());
        EXPECT_FALSE(ru.isEmpty()) << "no Russian entry for: " << source.constData();
        EXPECT_NE(ru, text) << "untranslated: " << source.constData();
        EXPECT_EQ(english.translate("QObject", source.constData()), text) << source.constData();
    }
}

TEST(Translations, AnInstalledTranslatorTurnsReportsRussian)
{
    QTranslator russian;
    ASSERT_TRUE(russian.load(":/Vexa/res/lang/vexa_96.qm"));
    ASSERT_TRUE(QCoreApplication::installTranslator(&russian));
    LogCapture log;
    reportInvalid(VEXA_CALL_SITE, QObject::tr("Can't copy invalid image."));
    QCoreApplication::removeTranslator(&russian);
    reportInvalid(VEXA_CALL_SITE, QObject::tr("Can't copy invalid image."));

    const auto records = log.records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].text, QString::fromUtf8("Невозможно скопировать недопустимое изображение."));
    EXPECT_EQ(records[0].issue, Issue::InvalidObject);
    EXPECT_EQ(records[1].text, "Can't copy invalid image.");
}

} // namespace
