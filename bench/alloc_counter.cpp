#include "alloc_counter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> g_live{0};
std::atomic<std::size_t> g_peak{0};

// Every block carries its size in front, so that delete can count it off.
// 16 bytes keep the block as aligned as malloc's own.
constexpr std::size_t kHeader = 16;

void* countedAlloc(std::size_t n)
{
    void* raw = std::malloc(n + kHeader);
    if (!raw)
        return nullptr;
    *static_cast<std::size_t*>(raw) = n;
    const std::size_t live = g_live.fetch_add(n, std::memory_order_relaxed) + n;
    std::size_t peak = g_peak.load(std::memory_order_relaxed);
    while (live > peak && !g_peak.compare_exchange_weak(peak, live, std::memory_order_relaxed)) {
    }
    return static_cast<char*>(raw) + kHeader;
}

void countedFree(void* p)
{
    if (!p)
        return;
    void* raw = static_cast<char*>(p) - kHeader;
    g_live.fetch_sub(*static_cast<std::size_t*>(raw), std::memory_order_relaxed);
    std::free(raw);
}

void* countedNew(std::size_t n)
{
    if (void* p = countedAlloc(n))
        return p;
    throw std::bad_alloc();
}

}  // namespace

namespace murmex_bench {

std::size_t liveHeapBytes() { return g_live.load(std::memory_order_relaxed); }

void resetHeapPeak() { g_peak.store(g_live.load(std::memory_order_relaxed), std::memory_order_relaxed); }

std::size_t heapPeakBytes() { return g_peak.load(std::memory_order_relaxed); }

}  // namespace murmex_bench

void* operator new(std::size_t n) { return countedNew(n); }
void* operator new[](std::size_t n) { return countedNew(n); }
void* operator new(std::size_t n, const std::nothrow_t&) noexcept { return countedAlloc(n); }
void* operator new[](std::size_t n, const std::nothrow_t&) noexcept { return countedAlloc(n); }
void operator delete(void* p) noexcept { countedFree(p); }
void operator delete[](void* p) noexcept { countedFree(p); }
void operator delete(void* p, std::size_t) noexcept { countedFree(p); }
void operator delete[](void* p, std::size_t) noexcept { countedFree(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { countedFree(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { countedFree(p); }
