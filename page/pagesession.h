// SPDX-License-Identifier: MIT
#pragma once

// The page on our host: the plug-in loaded, the simulated device behind it,
// the bridge and the Qt Quick page in front. Needs a QGuiApplication.

#include "host/host.h"
#include "page/pagebridge.h"
#include "sim/player.h"
#include "sim/scenario.h"
#include "sim/trace.h"
#include "sim/tracelog.h"

#include <QImage>
#include <QString>

#include <memory>
#include <string>

class QQmlApplicationEngine;
class QQuickWindow;

namespace edidvm {
namespace page {

class PageSession
{
public:
    // The scenario and the trace must outlive the session.
    PageSession(const sim::Scenario& scenario, sim::Trace& trace);
    ~PageSession();
    PageSession(const PageSession&) = delete;
    PageSession& operator=(const PageSession&) = delete;

    // Loads the plug-in, starts the component and opens the page (not yet
    // shown). false and error() when the plug-in does not load.
    bool open(const std::string& plugin);
    const std::string& error() const { return m_host.error(); }

    PageBridge& bridge() { return *m_bridge; }
    sim::Player& player() { return *m_player; }
    QQuickWindow* window() const { return m_window; }
    // The page as it is drawn now; null when it cannot be drawn.
    QImage picture();
    // Stops the run: notes a confirmation left waiting; returns 1 when the
    // host found kept envelopes changed.
    int close();

private:
    const sim::Scenario& m_scenario;
    sim::Trace& m_trace;
    host::Host m_host;
    std::unique_ptr<sim::Player> m_player;
    std::unique_ptr<PageBridge> m_bridge;
    std::unique_ptr<QQmlApplicationEngine> m_engine;
    std::unique_ptr<sim::TraceLog> m_log;
    QQuickWindow* m_window = nullptr;
    bool m_closed = false;
};

// Where the programs find what they do not take from the command line.
struct PageDefaults
{
    std::string plugin;
    std::string scenario;
    std::string translations; // the directory of the .qm files
};

// edidsim page [options] [SCENARIO]; argv[0] is "page".
int pageCommand(int argc, char** argv, const PageDefaults& defaults);

} // namespace page
} // namespace edidvm
