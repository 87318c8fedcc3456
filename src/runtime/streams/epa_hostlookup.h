// Finding the address of a host, by any thread that has a passport, so that shutdown can end it.
#pragma once

#include <cstdint>
#include <string_view>

// A dotted quad of any length is read; any other text is looked up. A failed look-up raises the error of its
// code under the function "gethostbyname"; SystemExit when the process ends first.
uint32_t EPA_HostAddress(std::string_view host);

// Raises SystemExit with empty texts.
[[noreturn]] void EPA_RaiseSystemExit();
