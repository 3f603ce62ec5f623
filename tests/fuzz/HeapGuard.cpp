// An operator new that puts one in 64 blocks into its own pages. The block ends at the end of its pages, which are
// released when it is freed, so that an access past its end or after it was freed faults at once.
#include <windows.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

constexpr std::size_t kSlot = 0x10000;
constexpr std::size_t kData = 0x8000;  // of a slot; the rest is never committed
constexpr std::size_t kSlots = 1024;

std::atomic<bool> s_taken[kSlots];
std::atomic<unsigned> s_cBlocks = 0;

char* Slot(std::size_t uSlot)
{
    static char* const s_pPool =
        static_cast<char*>(::VirtualAlloc(nullptr, kSlots * kSlot, MEM_RESERVE, PAGE_NOACCESS));
    return s_pPool + uSlot * kSlot;
}

}  // namespace

void* operator new(std::size_t cb)
{
    const unsigned uBlock = ++s_cBlocks;
    const std::size_t uSlot = uBlock / 64 % kSlots;
    if (uBlock % 64 == 0 && cb <= kData && !s_taken[uSlot].exchange(true)) {
        ::VirtualAlloc(Slot(uSlot), kData, MEM_COMMIT, PAGE_READWRITE);
        return Slot(uSlot) + kData - (cb + 15) / 16 * 16;
    }
    void* const pv = std::malloc(cb ? cb : 1);
    if (!pv) throw std::bad_alloc();
    return pv;
}

void operator delete(void* pv) noexcept
{
    if (pv < Slot(0) || pv > Slot(kSlots)) return std::free(pv);
    const std::size_t uSlot = static_cast<std::size_t>(static_cast<char*>(pv) - Slot(0)) / kSlot;
    ::VirtualFree(Slot(uSlot), kSlot, MEM_DECOMMIT);
    s_taken[uSlot] = false;
}

void operator delete(void* pv, std::size_t) noexcept
{
    operator delete(pv);
}
