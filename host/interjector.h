// SPDX-License-Identifier: MIT
#pragma once

// What the host's variations do to behave otherwise within the contract:
// lend payloads or make their data unstable, answer queries in envelopes of
// the host's own, and deliver messages into a component's own sends.

#include "framework/imessage.h"
#include "framework/wire.h"
#include "host/hostobjects.h"
#include "host/sendhook.h"
#include "host/variation.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace edidvm {
namespace host {

// A message the host delivers into its components on its own.
struct Delivery
{
    int kind = kpf::MessageKindEvent;
    std::uint32_t number = 0;
    Bytes payload;
    std::optional<int> size; // the size reported; the payload's when empty
    bool nullData = false;
    // A record that owns texts or lists is delivered from this object
    // instead of the payload bytes.
    std::shared_ptr<const void> record;
};

// What the nested-deliveries and moving-current variations deliver.
struct Interjection
{
    std::vector<Delivery> deliveries;
    std::vector<std::uint32_t> during; // the sends that trigger it; empty: any
    int times = -1;                    // how many sends trigger it; -1: all
    // Sees each delivery just before it is made (a trace, say).
    std::function<void(const Delivery&)> observer;
};

// Thread-safe: components send from any thread.
class Interjector
{
public:
    // Hands one delivery's message to every component.
    using Deliver = std::function<void(int kind, std::uint32_t number, int size, const void* data)>;

    void setVariation(Variation variation) { m_variation.store(variation); }
    Variation variation() const { return m_variation.load(); }
    // How data() hands out the payload of the messages components create,
    // and of those the host delivers on its own.
    PayloadMode sendMode() const;
    PayloadMode deliveryMode() const;

    void setInterjection(Interjection interjection);
    // How many sends have triggered the interjection since it was set.
    int interjections() const { return m_interjectionsMade.load(); }
    // Runs at each stage of a component's own send. Delivers the
    // interjection through deliver when the variation calls for it, never
    // from within an interjection, so it cannot recurse.
    void onSend(const HostMessage& sent, SendStage stage, const Deliver& deliver);

    // The envelope a stand-in fills for a query command. Under
    // AnswerElsewhere, when the stand-in asks for it, that is a copy of the
    // asker's envelope that the host keeps, and the asker's pointer variable
    // (which the lent payload is) is pointed at it. Otherwise the asker's own.
    template <typename Envelope>
    Envelope* answerEnvelope(const kpf::IMessage& command, bool elsewhere);
    // Empty when every kept envelope is still as its stand-in left it;
    // otherwise says which one the asker changed.
    std::string keptEnvelopesChanged() const;
    void dropKeptEnvelopes();

private:
    struct KeptEnvelope
    {
        std::shared_ptr<void> object;
        std::size_t size = 0;
        std::uint32_t number = 0;
        Bytes snapshot; // its bytes once the stand-in had answered
    };

    void interject(const HostMessage& sent, const Deliver& deliver);
    void keep(std::shared_ptr<void> object, std::size_t size, std::uint32_t number);
    void sealKeptEnvelopes();

    std::atomic<Variation> m_variation{Variation::Default};
    mutable std::mutex m_mutex;
    Interjection m_interjection;
    int m_interjectionsLeft = -1;
    std::atomic<int> m_interjectionsMade{0};
    std::vector<KeptEnvelope> m_kept;
};

template <typename Envelope>
Envelope* Interjector::answerEnvelope(const kpf::IMessage& command, bool elsewhere)
{
    const void* data = command.size() == static_cast<int>(sizeof(Envelope*)) ? command.data() : nullptr;
    if (data == nullptr)
        return nullptr;
    Envelope* asker = nullptr;
    std::memcpy(&asker, data, sizeof asker);
    if (!elsewhere || asker == nullptr || variation() != Variation::AnswerElsewhere)
        return asker;
    // The asker's inputs (and its filter) go along, as a responder that
    // builds its own answer from the request would take them.
    auto kept = std::make_shared<Envelope>(*asker);
    Envelope* answer = kept.get();
    std::memcpy(const_cast<void*>(data), &answer, sizeof answer);
    keep(std::move(kept), sizeof(Envelope), static_cast<std::uint32_t>(command.number()));
    return answer;
}

} // namespace host
} // namespace edidvm
