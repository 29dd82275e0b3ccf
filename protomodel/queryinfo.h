// SPDX-License-Identifier: MIT
#pragma once

// The query envelope. The asker keeps it on its stack and sends its address
// (8 bytes) as a command payload; the answering component calls filter, if
// set, and fills info in place before the send returns.

#include "protomodel/interfacerecords.h"
#include "protomodel/layoutcheck.h"
#include "protomodel/screenrecords.h"

#include <functional>
#include <map>
#include <string>

namespace LCD {
namespace GlobalMessageHander {

using QueryFilter = std::function<bool(std::map<std::string, std::string>&)>;

template <typename T>
struct QueryInfo
{
    QueryFilter filter; // empty: the query has no parameters
    T info;             // the asker's inputs and the answer
};

EDIDVM_ASSERT_SIZE(QueryFilter, 32);
EDIDVM_ASSERT_OFFSET(QueryInfo<ProtoModel::Interface::s_InterfaceDetailInfo>, info, 32);
EDIDVM_ASSERT_OFFSET(QueryInfo<ProtoModel::Interface::s_TimigCheckQuery>, info, 32);
EDIDVM_ASSERT_OFFSET(QueryInfo<ProtoModel::Screen::s_ScreenDetail>, info, 32);
EDIDVM_ASSERT_SIZE(QueryInfo<ProtoModel::Interface::s_InterfaceDetailInfo>, 72);

} // namespace GlobalMessageHander
} // namespace LCD
