// SPDX-License-Identifier: MIT
#pragma once

// The page is a module of its own that edidsim loads only for its "page"
// subcommand, so that decoding and playing scenarios need no Qt GUI.

// The module's one export. Plain C types: the program and the module agree
// on nothing but this.
#define EDIDSIM_PAGE_ENTRY "edidsim_page_main"
// argv[0] is "page"; the three paths are where the program finds what the
// command line does not give: the plug-in, the scenario and the translations.
using EdidsimPageEntry = int (*)(int argc, char** argv, const char* plugin, const char* scenario,
                                 const char* translations);
