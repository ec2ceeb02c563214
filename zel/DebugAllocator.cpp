#include "zel/DebugAllocator.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>

namespace ZELd {

namespace {

// Every block starts with a header; its last word tells which kind, so that a
// free can find the start of the block from the address handed out.
constexpr uint64_t kPlain = 0x5A454C706C61696EULL;   // counted only
constexpr uint64_t kTracked = 0x5A454C7472616B64ULL; // listed, with source
constexpr uint64_t kFreed = 0x5A454C6672656564ULL;

struct PlainHeader {
    uint64_t size;
    uint64_t tag;
};

struct TrackedHeader {
    TrackedHeader* prev;
    TrackedHeader* next;
    const char* path;
    int32_t line;
    int32_t kind;
    uint64_t size;
    uint64_t tag;
};

static_assert(sizeof(PlainHeader) % alignof(std::max_align_t) == 0);
static_assert(sizeof(TrackedHeader) % alignof(std::max_align_t) == 0);

std::mutex& listLock()
{
    static std::mutex m; // constant-initialised: usable before any other static
    return m;
}
TrackedHeader* gHead = nullptr;
size_t gOwnBlocks = 0, gOwnBytes = 0;

// The blocks without source are only counted. Libraries allocate thousands
// of them for every file, so each thread counts its own, in a cell that only
// it writes (a relaxed load and store: no lock, no locked instruction), and
// the report sums the cells. A block freed by another thread than the one that
// allocated it makes one cell go up and another down; the sum stays exact.
// Cells are made with the C allocator, outside the counts, and never released, so the
// counts of a thread that has ended stay in the sum.
class Tally {
public:
    void add(size_t n) { value_.store(value_.load(std::memory_order_relaxed) + n, std::memory_order_relaxed); }
    void sub(size_t n) { value_.store(value_.load(std::memory_order_relaxed) - n, std::memory_order_relaxed); }
    size_t load() const { return value_.load(std::memory_order_relaxed); }

private:
    std::atomic<size_t> value_{0};
};

// One cache line each: a thread's counting does not slow the others down.
struct alignas(64) ThreadCounts {
    Tally blocks, bytes;
    ThreadCounts* next = nullptr;
};

std::mutex& cellsLock()
{
    static std::mutex m;
    return m;
}
ThreadCounts* gCells = nullptr;               // every thread's cell, under cellsLock
thread_local ThreadCounts* tCounts = nullptr; // this thread's, registered at its first block

ThreadCounts& threadCounts()
{
    if (tCounts) return *tCounts;
    void* raw = std::aligned_alloc(alignof(ThreadCounts), sizeof(ThreadCounts));
    if (!raw) std::abort(); // no cell, no exact count: nothing sensible is left to do
    auto* cell = new (raw) ThreadCounts;
    std::lock_guard<std::mutex> lock(cellsLock());
    cell->next = gCells;
    gCells = cell;
    return *(tCounts = cell);
}

// The blocks and bytes held by code without source, over every thread.
std::pair<size_t, size_t> otherCounts()
{
    size_t blocks = 0, bytes = 0;
    std::lock_guard<std::mutex> lock(cellsLock());
    for (const ThreadCounts* c = gCells; c; c = c->next) {
        blocks += c->blocks.load();
        bytes += c->bytes.load();
    }
    return {blocks, bytes};
}

// The largest request since the last reset; a plain load on the common path.
std::atomic<size_t> gLargest{0};

// A process started with ZEL_ALLOCATOR=plain in its environment (one that
// never reports on its blocks, such as a probe helper) takes every block from
// the C allocator as it is: no header, no count, no list. It is decided at the
// first block, before any other thread, and holds for the life of the process,
// so a block is never freed by the other way.
bool plainProcess()
{
    static const bool plain = [] {
        const char* value = std::getenv("ZEL_ALLOCATOR");
        return value && std::strcmp(value, "plain") == 0;
    }();
    return plain;
}

void noteSize(size_t size)
{
    size_t seen = gLargest.load(std::memory_order_relaxed);
    while (size > seen && !gLargest.compare_exchange_weak(seen, size, std::memory_order_relaxed)) {}
}

void* allocPlain(size_t size)
{
    if (size == 0) size = 1;
    if (plainProcess()) return std::malloc(size);
    auto* h = static_cast<PlainHeader*>(std::malloc(sizeof(PlainHeader) + size));
    if (!h) return nullptr;
    h->size = size;
    h->tag = kPlain;
    noteSize(size);
    ThreadCounts& counts = threadCounts();
    counts.blocks.add(1);
    counts.bytes.add(size);
    return h + 1;
}

void* allocTracked(size_t size, int kind, const char* path, int line)
{
    if (plainProcess()) return std::malloc(size == 0 ? 1 : size);
    noteSize(size);
    if (size == 0) size = 1;
    auto* h = static_cast<TrackedHeader*>(std::malloc(sizeof(TrackedHeader) + size));
    if (!h) return nullptr;
    h->path = path;
    h->line = line;
    h->kind = kind;
    h->size = size;
    h->tag = kTracked;
    h->prev = nullptr;
    std::lock_guard<std::mutex> lock(listLock());
    h->next = gHead;
    if (gHead) gHead->prev = h;
    gHead = h;
    ++gOwnBlocks;
    gOwnBytes += size;
    return h + 1;
}

void release(void* block)
{
    if (!block) return;
    if (plainProcess()) return std::free(block);
    uint64_t* tag = static_cast<uint64_t*>(block) - 1;
    if (*tag == kPlain) {
        auto* h = static_cast<PlainHeader*>(block) - 1;
        ThreadCounts& counts = threadCounts();
        counts.blocks.sub(1);
        counts.bytes.sub(h->size);
        h->tag = kFreed;
        std::free(h);
    } else if (*tag == kTracked) {
        auto* h = static_cast<TrackedHeader*>(block) - 1;
        {
            std::lock_guard<std::mutex> lock(listLock());
            if (h->prev) h->prev->next = h->next;
            else gHead = h->next;
            if (h->next) h->next->prev = h->prev;
            --gOwnBlocks;
            gOwnBytes -= h->size;
        }
        h->tag = kFreed;
        std::free(h);
    } else {
        // Not a block of this allocator, or freed twice: say so and leave it.
        std::fprintf(stderr, "ZELDebugFree: invalid or freed block %p\n", block);
    }
}

void* allocOrThrow(size_t size)
{
    void* p = allocPlain(size);
    if (!p) throw std::bad_alloc();
    return p;
}

} // namespace

void* ZELDebugMalloc(size_t size, int kind, const char* path, int line)
{
    return path ? allocTracked(size, kind, path, line) : allocPlain(size);
}

void ZELDebugFree(void* block, int, const char*, int) { release(block); }

ZELDebugMemoryStatus ZELDebugMemory()
{
    const auto [otherBlocks, otherBytes] = otherCounts();
    std::lock_guard<std::mutex> lock(listLock());
    return {gOwnBlocks, gOwnBytes, otherBlocks, otherBytes};
}

size_t ZELDebugLargestBlock() { return gLargest.load(std::memory_order_relaxed); }
void ZELDebugResetLargestBlock() { gLargest.store(0, std::memory_order_relaxed); }

size_t ZELDebugHeldBlocks(ZELDebugHeldBlock* into, size_t max, ZELDebugMemoryStatus& status)
{
    size_t listed = 0;
    const auto [otherBlocks, otherBytes] = otherCounts();
    std::lock_guard<std::mutex> lock(listLock());
    for (TrackedHeader* h = gHead; h && listed < max; h = h->next) into[listed++] = {h->path, h->line, h->size};
    status = {gOwnBlocks, gOwnBytes, otherBlocks, otherBytes};
    return listed;
}

} // namespace ZELd

// The global allocation functions: everything goes through the debug allocator.
void* operator new(size_t size) { return ZELd::allocOrThrow(size); }
void* operator new[](size_t size) { return ZELd::allocOrThrow(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return ZELd::allocPlain(size); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return ZELd::allocPlain(size); }
void operator delete(void* p) noexcept { ZELd::release(p); }
void operator delete[](void* p) noexcept { ZELd::release(p); }
void operator delete(void* p, size_t) noexcept { ZELd::release(p); }
void operator delete[](void* p, size_t) noexcept { ZELd::release(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { ZELd::release(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { ZELd::release(p); }

#if defined(__SANITIZE_ADDRESS__)
// The sanitizer build. Its leak check tracks the thread-local blocks of
// libraries loaded at run time (libfbclient's, through a driver module); glibc
// takes them from malloc, and for a block that starts 16 bytes into a page the
// sanitizer reads its bounds from the bytes before it, finds the heap's own
// bookkeeping there and crashes the check at exit. Untracked, such blocks are
// not scanned for pointers: a block kept only through one would be reported as
// a leak, never hidden.
extern "C" const char* __asan_default_options() { return "intercept_tls_get_addr=0"; }
#endif
