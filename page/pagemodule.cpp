// SPDX-License-Identifier: MIT
#include "page/pageentry.h"
#include "page/pagesession.h"

extern "C" __attribute__((visibility("default"))) int edidsim_page_main(int argc, char** argv, const char* plugin,
                                                                        const char* scenario, const char* translations)
{
    return edidvm::page::pageCommand(argc, argv, {plugin, scenario, translations});
}

// The entry's type is the contract with the program.
static_assert(std::is_same_v<decltype(&edidsim_page_main), EdidsimPageEntry>);
