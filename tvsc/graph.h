// SPDX-License-Identifier: MIT
// graph: what depends on what, as a tree of text, as a drawing, or as text that is drawn by others. Each returns the
// exit status.
#pragma once

#include "tvsc/session.h"

enum class GraphFormat { text, dot, svg, mermaid, json };

// With names: these and all that they need, else everything.
int RunGraph(Session &session, const std::vector<std::string> &names, GraphFormat format);
