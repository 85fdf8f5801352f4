// The store of the weather tools' particles: records in blocks that never move, a free list and an
// active list (newest first), and the per-render parameters of a simulation step. Rain, Smoke and
// Snow share it; each uses the fields of the record that its variant has.
#pragma once

#include <cstdint>

// Which tool a store serves; the three differ in a few rules of birth and motion.
enum class ParticleKind { Rain, Smoke, Snow };

// One particle. Plain data, zeroed when it is taken from the pool, except `address`, which belongs
// to the storage and not to the particle.
struct ParticleRecord {
    float prevX, prevY;  // position before the latest update: the tail of a streak
    float x, y;          // position in pixels of the picture, y up; not limited to the picture
    float vx, vy;        // velocity in pixels a step
    float red, green, blue, alpha;  // on the 0..32767 scale, fixed at birth, not clamped
    // Steps since birth. Snow counts whole steps; the float holds them exactly, since no age
    // reaches 2^24.
    float age;
    int32_t lifetime;    // steps to live
    int32_t extinction;  // steps over which density fades; the particle also dies at this age
    float bounceGain;    // Rain: factor on vy in the next update, 1.0 at birth
    int32_t bounces;     // Rain: bounces so far
    int32_t stampIndex;  // Smoke and Snow: 0..40, the size
    ParticleRecord* next;
    // A stand-in for the record's address: fixed when its block is made, the same in every run.
    // Drawing that is chosen "by address" reads its low bits.
    uint32_t address;
};

struct ParticleBlock {
    ParticleRecord* records = nullptr;
    int32_t capacity = 0;
    ParticleBlock* next = nullptr;
};

// The inputs as a step uses them, rewritten at the start of every render. All in pixels of the
// current picture. A checkbox that is off gives 0 for the value it governs.
struct StepParameters {
    // Births, lives and jitter.
    float densityMean = 0, densityVar = 0;
    float lifeMean = 0, lifeVar = 0;
    float extinctionMean = 0, extinctionVar = 0;
    float jitterRadius = 0;
    // Speed at birth.
    float startSpeed = 0, speedVar = 0, spinVar = 0, speedGain = 1;
    // Colour at birth.
    float colourVar = 0, monoVar = 0;
    float baseColour[4] = {0, 0, 0, 0};
    // Forces.
    float gravity = 0, gravityCos = 0, gravitySin = 0;
    float friction = 0;
    float swirlDensity = 0, swirlAmp = 0, swirlRamp = 0;
    float windX = 0, windY = 0, windDirX = 0, windDirY = 0, windCos = 0, windSpeed = 0;
    int32_t preRolling = 0;
    // The picture.
    int32_t width = 0, height = 0;
    float aspectX = 1, aspectY = 1;
    // Rain's bounces.
    float rebound = 0;
    int32_t mostBounces = 0;
    // Snow's size bias and second kind of wind.
    float sizeMean = 0, sizeVar = 0, sizeBias = 1;
    int32_t dryFlag = 0;
    int32_t multiDirectional = 0;
    float windRange = 0;
};

class ParticlePool {
  public:
    // Records per block.
    static constexpr int32_t kBlockCapacity = 1024;
    // Blocks at most: beyond this the pool is full, as if the allocator were exhausted. It keeps
    // the counts and the stand-in addresses within 32 bits.
    static constexpr int32_t kMostBlocks = 1 << 20;

    // Makes the first block.
    explicit ParticlePool(int32_t capacity = kBlockCapacity);
    ~ParticlePool();
    ParticlePool(const ParticlePool&) = delete;
    ParticlePool& operator=(const ParticlePool&) = delete;

    // A zeroed record from the free list, with a new block when the list is empty; null when no
    // block can be had.
    ParticleRecord* Take();
    // Puts a taken record at the head of the active list.
    void PushActive(ParticleRecord* record);
    // Moves every active record to the free list. Blocks stay.
    void ClearParticles();

    ParticleRecord* freeHead = nullptr;
    ParticleRecord* activeHead = nullptr;
    ParticleBlock* blockHead = nullptr;
    int32_t blockCapacity;
    int32_t blockCount = 0;
    int32_t activeCount = 0;
    // Blocks this pool may hold; kMostBlocks unless a test asks for fewer.
    int32_t mostBlocks = kMostBlocks;
    StepParameters params;

    // The stand-in address of the first record; records follow one word apart.
    static constexpr uint32_t kFirstAddress = 0x00100000u;

  private:
    bool AddBlock();
};

// The whole pixels of the birth line from (x0, y0) to (x1, y1), in walking order, into
// outX/outY; at most `capacity` are kept and the rest of a long line is dropped. Returns the
// number kept. A line of one pixel gives that pixel twice.
int BuildBirthLine(float x0, float y0, float x1, float y1, float* outX, float* outY, int capacity);

// The most points a birth line keeps.
constexpr int kBirthLineCapacity = 16384;
