#include "particles/ParticlePool.h"

#include <cstdlib>
#include <new>

#include "frame/SmallMaths.h"

ParticlePool::ParticlePool(int32_t capacity) : blockCapacity(capacity > 0 ? capacity : 1) {
    AddBlock();
}

ParticlePool::~ParticlePool() {
    while (blockHead) {
        ParticleBlock* b = blockHead;
        blockHead = b->next;
        delete[] b->records;
        delete b;
    }
}

bool ParticlePool::AddBlock() {
    if (blockCount >= mostBlocks) return false;
    auto* block = new (std::nothrow) ParticleBlock();
    if (!block) return false;
    block->records = new (std::nothrow) ParticleRecord[static_cast<size_t>(blockCapacity)]();
    if (!block->records) {
        delete block;
        return false;
    }
    block->capacity = blockCapacity;
    // Chained each to the next in storage order; the last one's link stays null.
    const uint32_t first = static_cast<uint32_t>(blockCount) * static_cast<uint32_t>(blockCapacity);
    for (int32_t i = 0; i < blockCapacity; ++i) {
        ParticleRecord& r = block->records[i];
        r.next = i + 1 < blockCapacity ? &block->records[i + 1] : nullptr;
        r.address = kFirstAddress + 4u * (first + static_cast<uint32_t>(i));
    }
    block->next = blockHead;
    blockHead = block;
    ++blockCount;
    // Only called with an empty free list (or at construction), so the block becomes the list.
    block->records[blockCapacity - 1].next = freeHead;
    freeHead = block->records;
    return true;
}

ParticleRecord* ParticlePool::Take() {
    if (!freeHead && !AddBlock()) return nullptr;
    ParticleRecord* r = freeHead;
    freeHead = r->next;
    const uint32_t address = r->address;
    *r = ParticleRecord();
    r->address = address;
    return r;
}

void ParticlePool::PushActive(ParticleRecord* record) {
    record->next = activeHead;
    activeHead = record;
    ++activeCount;
}

void ParticlePool::ClearParticles() {
    if (!activeHead) return;
    ParticleRecord* tail = activeHead;
    while (tail->next)
        tail = tail->next;
    tail->next = freeHead;
    freeHead = activeHead;
    activeHead = nullptr;
    activeCount = 0;
}

int BuildBirthLine(float x0, float y0, float x1, float y1, float* outX, float* outY, int capacity) {
    // The ends are rounded to whole pixels; the walk is done in 64 bits, as the ends may lie far
    // outside the picture.
    const int64_t ax = TruncateToInt(x0 + 0.5), ay = TruncateToInt(y0 + 0.5);
    const int64_t bx = TruncateToInt(x1 + 0.5), by = TruncateToInt(y1 + 0.5);
    const int64_t dx = bx > ax ? bx - ax : ax - bx, dy = by > ay ? by - ay : ay - by;
    const int64_t stepX = bx < ax ? -1 : 1, stepY = by < ay ? -1 : 1;
    const bool alongX = dx >= dy;
    const int64_t major = alongX ? dx : dy, minor = alongX ? dy : dx;
    int count = 0;
    if (capacity < 1) return 0;
    int64_t x = ax, y = ay, e = -major;
    // Points beyond the capacity are dropped, so the walk stops when the list is full.
    for (int64_t i = 0; i <= major && count < capacity; ++i) {
        outX[count] = static_cast<float>(x);
        outY[count] = static_cast<float>(y);
        ++count;
        e += 2 * minor;
        if (e > 0) {
            if (alongX)
                y += stepY;
            else
                x += stepX;
            e -= 2 * major;
        }
        if (alongX)
            x += stepX;
        else
            y += stepY;
    }
    if (major == 0 && count < capacity) {
        outX[count] = outX[0];
        outY[count] = outY[0];
        ++count;
    }
    return count;
}
