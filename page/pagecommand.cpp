// SPDX-License-Identifier: MIT
// edidsim page: the page on a display, or its pictures step by step.

#include "page/pagesession.h"
#include "sim/exitstatus.h"
#include "sim/runreport.h"
#include "sim/tracelog.h"

#include <CLI/CLI.hpp>
#include <QByteArray>
#include <QDir>
#include <QGuiApplication>
#include <QQuickWindow>
#include <QRegularExpression>
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

// Where the simulator's own translation is: beside the library's in the
// build tree, in share/edidsim/translations installed.
bool loadOwnTranslation(QTranslator& translator, const QString& name, const std::string& libraryDir)
{
    const QString dir = QString::fromStdString(libraryDir);
    return translator.load(name, dir) || translator.load(name, dir + QStringLiteral("/../../edidsim/translations"));
}

// Pictures already in the directory would be taken for this run's. Those of
// an earlier run --replace removes; other pictures are never ours to remove.
// Empty when the directory can take this run's.
std::string refusePictures(const std::string& dir, bool replace)
{
    QDir folder(QString::fromStdString(dir));
    const QStringList pictures = folder.entryList({QStringLiteral("*.png")}, QDir::Files, QDir::Name);
    const QRegularExpression step(QStringLiteral("^step-.*\\.png$"));
    QStringList others;
    QStringList steps;
    for (const QString& name : pictures)
        (step.match(name).hasMatch() ? steps : others).push_back(name);
    const auto first = [](const QStringList& names) {
        return std::to_string(names.size()) + " " + (names.size() == 1 ? "picture" : "pictures") + " (" +
               names.first().toStdString() + (names.size() > 1 ? " ..." : "") + ")";
    };
    if (!others.isEmpty())
        return dir + " holds " + first(others) +
               " this run would not write: use another directory (--replace removes only step-*.png)";
    if (!steps.isEmpty() && !replace)
        return dir + " already holds " + first(steps) +
               " of an earlier run: use --replace to remove them first, or another directory";
    for (const QString& name : steps) {
        if (!folder.remove(name))
            return dir + ": " + name.toStdString() + " cannot be removed";
    }
    return {};
}

// Qt says so whenever the environment lacks it, and offscreen nothing needs
// it: a CI job's standard error stays clean.
QtMessageHandler g_qtOutput = nullptr;
void withoutRuntimeDirNoise(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    if (text.startsWith(QLatin1String("QStandardPaths: XDG_RUNTIME_DIR not set")))
        return;
    if (g_qtOutput != nullptr)
        g_qtOutput(type, context, text);
}

// Plays every step and writes the page as it stands after each; the error
// when a picture cannot be written, empty when all were.
std::string screenshots(PageSession& session, const sim::Scenario& scenario, sim::Trace& trace, const std::string& dir)
{
    session.window()->show();
    for (std::size_t index = 0; index < scenario.steps.size(); ++index) {
        session.bridge().playNext();
        QCoreApplication::processEvents();
        const QString name = pictureName(index, scenario.steps[index].name);
        const QImage picture = session.picture();
        const QString file = QDir(QString::fromStdString(dir)).filePath(name);
        if (picture.isNull() || !picture.save(file))
            return file.toStdString() + ": the page could not be written";
        trace.note("picture " + name.toStdString());
    }
    return {};
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
    app.add_option("--lang", lang,
                   "install the component's translation and the page's own for this language, e.g. de (the trace "
                   "stays English)");
    app.add_option("--screenshots", dir,
                   "play the scenario without a display and write the page after each step into this directory, "
                   "one PNG a step");
    app.add_flag("--replace", replace,
                 "with --screenshots: remove the step pictures (step-*.png) an earlier run left in the directory "
                 "first; without it such a directory is refused, and so is, always, one holding other pictures "
                 "(*.png), which are never removed");
    app.add_flag("--json", json, "print the trace as JSON Lines (docs/trace.md), everything on standard output");
    app.footer("Exit status: 0 every expectation met, 1 an expectation not met, 2 a bad scenario, command line or "
               "picture directory, or no display, 3 a plug-in that does not load.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0 && jsonAsked(argc, argv)) {
            Trace trace(stdout, true, false);
            traceError(trace, BadInput, error.what());
            traceSummary(trace, Totals(), BadInput);
            return BadInput;
        }
        return app.exit(error) == 0 ? Passed : BadInput;
    }

    sim::Trace trace(stdout, json, colourWanted(json));
    Totals totals;
    totals.scenarios = 1;
    const auto stop = [&trace, &totals](int status, const std::string& message) {
        traceError(trace, status, message);
        traceSummary(trace, totals, status);
        return status;
    };
    sim::Scenario scenario;
    try {
        scenario = sim::loadScenario(file);
    } catch (const sim::ScenarioError& error) {
        traceProblems(trace, error);
        totals.refusedFiles.push_back(file);
        traceSummary(trace, totals, BadInput);
        return BadInput;
    }
    if (!dir.empty()) {
        std::error_code error;
        std::filesystem::create_directories(dir, error);
        if (error || !std::filesystem::is_directory(dir))
            return stop(BadInput, dir + ": not a directory the pictures can be written to");
        const std::string refused = refusePictures(dir, replace);
        if (!refused.empty())
            return stop(BadInput, refused);
        // No display needed; the software renderer draws the same on every machine.
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", "offscreen");
        if (qEnvironmentVariableIsEmpty("QT_QUICK_BACKEND"))
            qputenv("QT_QUICK_BACKEND", "software");
    } else if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && qEnvironmentVariableIsEmpty("DISPLAY") &&
               qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
        // Qt would abort the program.
        return stop(BadInput, "no display to open the page on (DISPLAY and WAYLAND_DISPLAY are not set): "
                              "--screenshots DIR writes its pictures without one");
    }

    g_qtOutput = qInstallMessageHandler(withoutRuntimeDirNoise);
    int qtArgc = 1;
    char* qtArgv[] = {argv[0], nullptr};
    QGuiApplication application(qtArgc, qtArgv);
    // The library's texts and the page's own, as the device's host installs
    // the translations of every component of its page.
    QTranslator translator;
    QTranslator own;
    if (!lang.empty()) {
        const QString name = QStringLiteral("outputedidviewmodel_") + QString::fromStdString(lang);
        if (!translator.load(name, QString::fromStdString(defaults.translations)))
            return stop(BadInput, "no translation " + name.toStdString() + ".qm in " + defaults.translations);
        const QString ownName = QStringLiteral("edidsim_") + QString::fromStdString(lang);
        if (!loadOwnTranslation(own, ownName, defaults.translations))
            return stop(BadInput,
                        "no translation " + ownName.toStdString() + ".qm (is the edidsim-page package installed?)");
        QCoreApplication::installTranslator(&translator);
        QCoreApplication::installTranslator(&own);
    }

    Tally tally;
    {
        PageSession session(scenario, trace);
        if (!session.open(plugin)) {
            return session.error().empty() ? stop(BadInput, "the page could not be made")
                                           : stop(PluginNotLoaded, session.error());
        }
        if (!dir.empty()) {
            const std::string failed = screenshots(session, scenario, trace, dir);
            if (!failed.empty())
                return stop(BadInput, failed);
        } else {
            session.window()->show();
            QGuiApplication::exec();
        }
        session.close();
        tally = session.player().tally();
    }
    const Outcome outcome = outcomeOf(tally, scenario.demonstration);
    traceResult(trace, scenario.file, outcome, tally);
    totals.add(scenario.file, outcome, tally);
    const int status = outcome == Outcome::Failed ? ExpectationsNotMet : Passed;
    traceSummary(trace, totals, status);
    return status;
}

} // namespace page
} // namespace edidvm
