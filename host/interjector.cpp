// SPDX-License-Identifier: MIT
#include "host/interjector.h"

#include <algorithm>
#include <cstdio>

namespace edidvm {
namespace host {

namespace {
// An interjection's own sends must not interject again.
thread_local int t_interjecting = 0;
// data() of an empty but present payload must still be non-null.
const unsigned char emptyDelivery = 0;
} // namespace

PayloadMode Interjector::sendMode() const
{
    const Variation now = variation();
    const bool lent = now == Variation::LentPayloads || now == Variation::AnswerElsewhere;
    return lent ? PayloadMode::Lent : PayloadMode::Copied;
}

PayloadMode Interjector::deliveryMode() const
{
    switch (variation()) {
    case Variation::LentPayloads:
    case Variation::AnswerElsewhere:
        return PayloadMode::Lent;
    case Variation::UnstableData:
        return PayloadMode::Unstable;
    default:
        return PayloadMode::Copied;
    }
}

void Interjector::setInterjection(Interjection interjection)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_interjectionsLeft = interjection.times;
    m_interjectionsMade.store(0);
    m_interjection = std::move(interjection);
}

void Interjector::onSend(const HostMessage& sent, SendStage stage, const Deliver& deliver)
{
    if (stage == SendStage::Answered)
        sealKeptEnvelopes();
    const Variation now = variation();
    const bool nested = now == Variation::NestedDeliveries && stage == SendStage::Delivering;
    const bool moving = now == Variation::MovingCurrent && stage == SendStage::Answered;
    if ((nested || moving) && t_interjecting == 0)
        interject(sent, deliver);
}

void Interjector::interject(const HostMessage& sent, const Deliver& deliver)
{
    std::vector<Delivery> deliveries;
    std::function<void(const Delivery&)> observer;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto& during = m_interjection.during;
        const std::uint32_t number = kpf::wireWord(sent.number());
        if (m_interjectionsLeft == 0 ||
            (!during.empty() && std::find(during.begin(), during.end(), number) == during.end()))
            return;
        if (m_interjectionsLeft > 0)
            --m_interjectionsLeft;
        ++m_interjectionsMade;
        deliveries = m_interjection.deliveries;
        observer = m_interjection.observer;
    }
    ++t_interjecting;
    for (const Delivery& delivery : deliveries) {
        const void* data = delivery.nullData          ? nullptr
                           : delivery.record          ? delivery.record.get()
                           : delivery.payload.empty() ? &emptyDelivery
                                                      : delivery.payload.data();
        const int size = delivery.size.value_or(static_cast<int>(delivery.payload.size()));
        if (observer)
            observer(delivery);
        deliver(delivery.kind, delivery.number, size, data);
    }
    --t_interjecting;
}

void Interjector::keep(std::shared_ptr<void> object, std::size_t size, std::uint32_t number)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_kept.push_back({std::move(object), size, number, {}});
}

void Interjector::sealKeptEnvelopes()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (KeptEnvelope& kept : m_kept) {
        if (!kept.snapshot.empty())
            continue;
        const auto* bytes = static_cast<const unsigned char*>(kept.object.get());
        kept.snapshot.assign(bytes, bytes + kept.size);
    }
}

std::string Interjector::keptEnvelopesChanged() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const KeptEnvelope& kept : m_kept) {
        if (kept.snapshot.size() != kept.size)
            continue; // its command has not returned yet
        // Moving a list out changes the container's own words.
        if (std::memcmp(kept.object.get(), kept.snapshot.data(), kept.size) != 0) {
            char text[96];
            std::snprintf(text, sizeof text, "the envelope kept for command 0x%08X was changed by the asker",
                          static_cast<unsigned>(kept.number));
            return text;
        }
    }
    return {};
}

void Interjector::dropKeptEnvelopes()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_kept.clear();
}

} // namespace host
} // namespace edidvm
