// vexa-studio [--lang en|ru] [SHOT|FOLDER...]: focus stacking and single-image tools in a window.
#include "MainWindow.h"
#include "stacking.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QLocale>

#include <cstdio>

int main(int argc, char* argv[])
{
    vexatool::startWithLargePages(argv);
    vexatool::returnLargeBlocksToTheSystem();
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("vexa-studio"));
    QApplication::setApplicationVersion(QStringLiteral(VEXA_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Focus stacking and image tools of the Vexa library."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption lang(QStringLiteral("lang"),
                                  QStringLiteral("The language of the window: en or ru (default: the system's, "
                                                 "English when it is neither)."),
                                  QStringLiteral("LANG"));
    parser.addOption(lang);
    parser.addPositionalArgument(QStringLiteral("shots"), QStringLiteral("Shots or folders of shots to open."),
                                 QStringLiteral("[SHOT|FOLDER...]"));
    parser.process(app);

    if (parser.isSet(lang)) {
        if (!studio::installTranslations(parser.value(lang))) {
            std::fprintf(stderr, "vexa-studio: unknown language '%s' (known: en, ru)\n",
                         qPrintable(parser.value(lang)));
            return 2;
        }
    } else if (!studio::installTranslations(QLocale::system().name().left(2))) {
        studio::installTranslations(QStringLiteral("en"));
    }

    studio::MainWindow window;
    window.show();
    if (!parser.positionalArguments().isEmpty())
        window.openPaths(parser.positionalArguments());
    return QApplication::exec();
}
