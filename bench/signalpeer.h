// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>

namespace kpf {
class IMessage;
}

namespace edidvm {
namespace bench {

// The peer a Qt developer would reach for: a signal, directly connected.
class SignalSender : public QObject
{
    Q_OBJECT

signals:
    void message(const kpf::IMessage* message);
};

} // namespace bench
} // namespace edidvm
