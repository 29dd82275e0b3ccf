// SPDX-License-Identifier: MIT
#pragma once

#include <QCoreApplication>

// The context of the page's own texts, outside any namespace so that lupdate,
// which does not know the project's include paths, names it as the code does.
class PageText
{
    Q_DECLARE_TR_FUNCTIONS(PageText)
};
