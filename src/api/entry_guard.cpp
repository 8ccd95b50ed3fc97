#include "api/entry_guard.h"

#include <iostream>

namespace dn_entry {

// std::endl ends the line and flushes, so the line reaches the host's output
// before the entry point returns.

void reportError(const JEx& e) noexcept
{
    std::cout << "Murmex error: " << e.what() << std::endl;
}

void reportException(const std::exception& e) noexcept
{
    std::cout << "Murmex exception: " << e.what() << std::endl;
}

void reportUnknown() noexcept
{
    std::cout << "Murmex unknown error" << std::endl;
}

}  // namespace dn_entry
