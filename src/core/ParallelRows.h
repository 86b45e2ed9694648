#pragma once

#include <cstdint>
#include <functional>

namespace pv {

// Asked between blocks of rows by long operations; answering true stops them. Workers may ask
// at the same time, so it must be safe to call from several threads (read an atomic flag).
using CancelHook = std::function<bool()>;

// How many workers a pass over `rows` rows of `pixelsPerRow` pixels should use. `requested` 0
// means one per core, but never so many that a worker gets too few pixels to pay for its thread.
unsigned workersFor(std::int64_t rows, std::int64_t pixelsPerRow, unsigned requested);

// Splits the rows 0 .. rows-1 into `workers` contiguous shares and hands each share to
// work(worker, firstRow, endRow) in blocks, worker 0 on the calling thread. Workers own their
// rows, so they need no locks; anything else they write must be per worker. Answers false when
// cancel stopped it (some blocks then never ran).
bool forEachRowBlock(std::int64_t rows, unsigned workers,
                     const std::function<void(unsigned, std::int64_t, std::int64_t)>& work,
                     const CancelHook& cancel = {});

}  // namespace pv
