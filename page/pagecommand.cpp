// SPDX-License-Identifier: MIT
// edidsim page: the page on a display, or its pictures step by step.

#include "page/pagesession.h"
#include "sim/exitstatus.h"
#include "sim/tracelog.h"

#include <CLI/CLI.hpp>
#include <QByteArray>
#include <QDir>
#include <QGuiApplication>
#include <QQuickWindow>
#include <QStringList>
#include <QTranslator>
#include <QtGlobal>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace edidvm {
namespace page {

namespace {
using namespace sim;

// "step-03-answer.png", numbered from 0 as the trace's steps are.
QString pictureName(std::size_t index, const std::string& kind)
{
    return QStringLiteral("step-%1-%2.png").arg(index, 2, 10, QLatin1Char('0')).arg(QString::fromStdString(kind));
}

// The step pictures already in the directory: pictures of another run
// beside this run's would be taken for this run's.
QStringList oldPictures(const std::string& dir)
{
    return QDir(QString::fromStdString(dir)).entryList({QStringLiteral("step-*.png")}, QDir::Files, QDir::Name);
}

// Where the simulator's own translation is: beside the library's in the
// build tree, in share/edidsim/translations installed.
bool loadOwnTranslation(QTranslator& translator, const QString& name, const std::string& libraryDir)
{
    const QString dir = QString::fromStdString(libraryDir);
    return translator.load(name, dir) || translator.load(name, dir + QStringLiteral("/../../edidsim/translations"));
}

// Plays every step and writes the page as it stands after each.
int screenshots(PageSession& session, const sim::Scenario& scenario, sim::Trace& trace, const std::string& dir)
{
    int failed = 0;
    session.window()->show();
    for (std::size_t index = 0; index < scenario.steps.size(); ++index) {
        if (!session.bridge().playNext())
            ++failed;
        QCoreApplication::processEvents();
        const QString name = pictureName(index, scenario.steps[index].name);
        const QImage picture = session.picture();
        const QString file = QDir(QString::fromStdString(dir)).filePath(name);
        if (picture.isNull() || !picture.save(file)) {
            std::fprintf(stderr, "edidsim: %s: the page could not be written\n", file.toLocal8Bit().constData());
            return BadInput;
        }
        trace.note("picture " + name.toStdString());
    }
    return failed;
}
} // namespace

int pageCommand(int argc, char** argv, const PageDefaults& defaults)
{
    CLI::App app("Opens the desktop page on the output EDID view model, with the scenario's simulated device "
                 "behind it; every message it exchanges is traced.",
                 "edidsim page");
    std::string file = defaults.scenario;
    std::string plugin = defaults.plugin;
    std::string lang;
    std::string dir;
    bool json = false;
    bool replace = false;
    app.add_option("scenario", file, "the scenario file (JSON): its device, and the steps the page can play")
        ->capture_default_str();
    app.add_option("--plugin", plugin, "the plug-in library to load")->capture_default_str();
    app.add_option("--lang", lang, "install the component's translation for this language, e.g. de");
    app.add_option("--screenshots", dir,
                   "play the scenario without a display and write the page after each step into this directory, "
                   "one PNG a step");
    app.add_flag("--replace", replace,
                 "with --screenshots: remove the step pictures already in the directory first (without it, a "
                 "directory holding any is refused)");
    app.add_flag("--json", json, "print the trace as JSON Lines");
    app.footer("Exit status: 0 every expectation met, 1 an expectation not met, 2 a bad scenario, command line or "
               "picture directory, 3 a plug-in that does not load.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? Passed : BadInput;
    }

    sim::Scenario scenario;
    try {
        scenario = sim::loadScenario(file);
    } catch (const sim::ScenarioError& error) {
        std::fprintf(stderr, "edidsim: %s\n", error.what());
        return BadInput;
    }
    if (!dir.empty()) {
        std::error_code error;
        std::filesystem::create_directories(dir, error);
        if (error || !std::filesystem::is_directory(dir)) {
            std::fprintf(stderr, "edidsim: %s: not a directory the pictures can be written to\n", dir.c_str());
            return BadInput;
        }
        const QStringList old = oldPictures(dir);
        if (!old.isEmpty() && !replace) {
            std::fprintf(stderr,
                         "edidsim: %s already holds %d step picture(s) (%s ...) this run did not write: use --replace "
                         "to remove them first, or another directory\n",
                         dir.c_str(), static_cast<int>(old.size()), old.first().toLocal8Bit().constData());
            return BadInput;
        }
        for (const QString& name : old) {
            if (!QDir(QString::fromStdString(dir)).remove(name)) {
                std::fprintf(stderr, "edidsim: %s: %s cannot be removed\n", dir.c_str(),
                             name.toLocal8Bit().constData());
                return BadInput;
            }
        }
        // No display needed; the software renderer draws the same on every machine.
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", "offscreen");
        if (qEnvironmentVariableIsEmpty("QT_QUICK_BACKEND"))
            qputenv("QT_QUICK_BACKEND", "software");
    }

    int qtArgc = 1;
    char* qtArgv[] = {argv[0], nullptr};
    QGuiApplication application(qtArgc, qtArgv);
    // The library's texts and the page's own, as the device's host installs
    // the translations of every component of its page.
    QTranslator translator;
    QTranslator own;
    if (!lang.empty()) {
        const QString name = QStringLiteral("outputedidviewmodel_") + QString::fromStdString(lang);
        if (!translator.load(name, QString::fromStdString(defaults.translations))) {
            std::fprintf(stderr, "edidsim: no translation %s.qm in %s\n", name.toLocal8Bit().constData(),
                         defaults.translations.c_str());
            return BadInput;
        }
        const QString ownName = QStringLiteral("edidsim_") + QString::fromStdString(lang);
        if (!loadOwnTranslation(own, ownName, defaults.translations)) {
            std::fprintf(stderr, "edidsim: no translation %s.qm (is the edidsim-page package installed?)\n",
                         ownName.toLocal8Bit().constData());
            return BadInput;
        }
        QCoreApplication::installTranslator(&translator);
        QCoreApplication::installTranslator(&own);
    }

    sim::Trace trace(stdout, json, colourWanted(json));
    int status = Passed;
    {
        PageSession session(scenario, trace);
        if (!session.open(plugin)) {
            std::fprintf(stderr, "edidsim: %s\n",
                         session.error().empty() ? "the page could not be made" : session.error().c_str());
            status = session.error().empty() ? BadInput : PluginNotLoaded;
        } else if (!dir.empty()) {
            status = screenshots(session, scenario, trace, dir);
            if (status != BadInput)
                status = session.close() + status == 0 ? Passed : ExpectationsNotMet;
        } else {
            // As another component would, the device makes its first interface current.
            const auto& interfaces = scenario.device.interfaces;
            if (!interfaces.empty())
                session.bridge().selectInterface(interfaces.front().interfaceId);
            session.window()->show();
            QGuiApplication::exec();
            status = session.close() == 0 ? Passed : ExpectationsNotMet;
        }
    }
    return status;
}

} // namespace page
} // namespace edidvm
