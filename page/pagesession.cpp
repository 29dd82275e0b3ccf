// SPDX-License-Identifier: MIT
#include "page/pagesession.h"

#include "framework/imessage.h"
#include "protomodel/messageids.h"

#include <QEventLoop>
#include <QQmlApplicationEngine>
#include <QQmlContext>
#include <QQuickItem>
#include <QQuickItemGrabResult>
#include <QQuickWindow>
#include <QTimer>
#include <QUrl>

#include <cstring>

// Resources of a static library are registered by hand, outside any namespace.
static void initPageResources()
{
    Q_INIT_RESOURCE(page);
}

namespace edidvm {
namespace page {

PageSession::PageSession(const sim::Scenario& scenario, sim::Trace& trace) : m_scenario(scenario), m_trace(trace)
{
    initPageResources();
}

PageSession::~PageSession()
{
    close();
    m_log.reset();
    // The page reads the bridge until it is gone.
    m_engine.reset();
    m_bridge.reset();
    m_player.reset();
}

bool PageSession::open(const std::string& plugin)
{
    if (!m_host.load(plugin))
        return false;
    m_log = std::make_unique<sim::TraceLog>(m_trace);
    m_player = std::make_unique<sim::Player>(m_host, m_scenario, m_trace);
    m_bridge = std::make_unique<PageBridge>(*m_player, m_scenario);
    // What the component posts reaches the page only when the host delivers it.
    m_host.events().addListener(
        [this](const kpf::IMessage& event) {
            if (m_bridge != nullptr)
                m_bridge->delivered(static_cast<std::uint32_t>(event.number()), event.data(), event.size());
        },
        LCD::MessageId::AssessFailed);
    m_player->start();
    m_engine = std::make_unique<QQmlApplicationEngine>();
    m_engine->rootContext()->setContextProperty(QStringLiteral("bridge"), m_bridge.get());
    m_engine->load(QUrl(QStringLiteral("qrc:/page/Page.qml")));
    const QList<QObject*> roots = m_engine->rootObjects();
    m_window = roots.isEmpty() ? nullptr : qobject_cast<QQuickWindow*>(roots.first());
    if (m_window == nullptr) {
        m_trace.note("the page could not be made");
        return false;
    }
    return true;
}

QImage PageSession::picture()
{
    if (m_window == nullptr)
        return {};
    // The window's own grab is null offscreen with the software renderer;
    // its content item renders.
    const QSharedPointer<QQuickItemGrabResult> result = m_window->contentItem()->grabToImage();
    if (!result)
        return {};
    QEventLoop loop;
    bool ready = false;
    QObject::connect(result.data(), &QQuickItemGrabResult::ready, &loop, [&]() {
        ready = true;
        loop.quit();
    });
    QTimer::singleShot(10000, &loop, &QEventLoop::quit);
    if (!ready)
        loop.exec();
    return ready ? result->image() : QImage();
}

int PageSession::close()
{
    if (m_closed || m_player == nullptr)
        return 0;
    m_closed = true;
    if (m_bridge->pendingBox() != 0)
        m_trace.note("the page closed while box " + std::to_string(m_bridge->pendingBox()) + " waited for an answer");
    return m_player->finish();
}

} // namespace page
} // namespace edidvm
