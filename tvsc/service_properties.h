// SPDX-License-Identifier: MIT
// service_properties: what is known of a service, value by value, for scripts. A property is called as the member of
// the JSON document is.
#pragma once

#include "tvsc/service_view.h"

[[nodiscard]] std::vector<std::string> PropertyNames();

// The value of one, which must be among these; empty where the service has none. Of several dependencies it is the list
// that config --depends takes.
//   view  with its configuration
[[nodiscard]] std::string PropertyOf(const ServiceView &view, const std::string &property);

// Whether it stands in the configuration.
[[nodiscard]] bool IsConfigured(const std::string &property);
