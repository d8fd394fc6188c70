// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The wavelets of a point in vector code: the nine cells of a band side by side, then the wavelets
// that remain of a group of bands, each step with the same roundings as the plain code. This source
// is compiled once for each instruction set.
#include <algorithm>
#include <cstdint>

#include "textures/ocean_math.h"
#include "textures/ocean_wavelets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "textures/ocean_wavelets_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace nimbra::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;
using namespace ocean;

// Wider vectors would leave most lanes empty: a band has nine cells, and a sea ten bands.
using Floats = hn::CappedTag<float, 16>;
using Words = hn::RebindToUnsigned<Floats>;
using Ints = hn::RebindToSigned<Floats>;
using Vf = hn::Vec<Floats>;
using Vu = hn::Vec<Words>;
constexpr Floats kF{};
constexpr Words kU{};
constexpr Ints kI{};

constexpr int kCells = 9;
constexpr int kGroup = 16;  // bands
static_assert(kGroup <= kWavePadding);

/// The bands of a group at the point.
struct alignas(64) BandGroup {
    float u[kGroup], v[kGroup];  // the place in lattice cells
    float nearI[kGroup], nearJ[kGroup];
    std::uint32_t cell[kGroup];  // of the lattice point next to it: what its hash is made of
    float onLattice[kGroup];     // 0: nothing there
    float waveNumber[kGroup], amplitude[kGroup];
    float timePhase[kGroup], loopPhase[kGroup];
};

/// The wavelets of a group that reach the point; room for one vector more behind them.
struct alignas(64) WaveletList {
    static constexpr int kRoom = kGroup * kCells + 16;
    std::uint32_t state[kRoom];
    float weight[kRoom];
    float waveNumber[kRoom], amplitude[kRoom], fade[kRoom];
    float timePhase[kRoom], loopPhase[kRoom];
    float x[kRoom], y[kRoom], z[kRoom];  // what each adds to the sum
    int count = 0;
};

/// The cells around the nearest one, x fastest; behind them some that are never reached.
struct alignas(64) CellOffsets {
    float i[kGroup], j[kGroup];
    std::uint32_t cell[kGroup];
};
constexpr CellOffsets makeCellOffsets() {
    constexpr float kNowhere = 1e30f;
    CellOffsets offsets{};
    for (int k = 0; k < kGroup; ++k) {
        const int i = k % 3 - 1, j = k / 3 - 1;
        offsets.i[k] = k < kCells ? static_cast<float>(i) : kNowhere;
        offsets.j[k] = k < kCells ? static_cast<float>(j) : kNowhere;
        offsets.cell[k] = static_cast<std::uint32_t>(i) * kCellFactorX +
                          static_cast<std::uint32_t>(j) * kCellFactorY;
    }
    return offsets;
}
constexpr CellOffsets kCellOffsets = makeCellOffsets();

HWY_INLINE HWY_ATTR Vf number(float value) {
    return hn::Set(kF, value);
}

/// Rounded once, like the conversion of a single number: both halves are exact.
HWY_INLINE HWY_ATTR Vf toFloat(Vu x) {
    const Vf high = hn::ConvertTo(kF, hn::BitCast(kI, hn::ShiftRight<16>(x)));
    const Vf low = hn::ConvertTo(kF, hn::BitCast(kI, hn::And(x, hn::Set(kU, 0xFFFF))));
    return hn::Add(hn::Mul(high, number(65536.0f)), low);
}

HWY_INLINE HWY_ATTR Vu multiplyAdd(Vu x, std::uint32_t factor, std::uint32_t step) {
    return hn::Add(hn::Mul(x, hn::Set(kU, factor)), hn::Set(kU, step));
}

HWY_INLINE HWY_ATTR Vu hashCells(Vu x) {
    const Vu folded = hn::ShiftRight<7>(hn::Xor(hn::ShiftRight<16>(x), x));
    const Vu spread = hn::ShiftLeft<10>(hn::Xor(hn::ShiftLeft<3>(x), x));
    return multiplyAdd(hn::Xor(hn::Xor(folded, spread), x), kStreamFactor, kHashStep);
}

HWY_INLINE HWY_ATTR Vf vectorSine(Vf angle) {
    const Vf turns = hn::Floor(hn::Add(hn::Mul(angle, number(kInverseTwoPi)), number(0.5f)));
    Vf a = hn::Sub(angle, hn::Mul(number(kTwoPi), turns));
    // Not by Min and Max, which aren't the same everywhere for what is no number.
    a = hn::IfThenElse(hn::Gt(a, number(kPi)), number(kPi), a);
    a = hn::IfThenElse(hn::Lt(a, number(-kPi)), number(-kPi), a);
    return hn::Sub(hn::Mul(number(kSineLinear), a),
                   hn::Mul(hn::Mul(number(kSineSquare), hn::Abs(a)), a));
}
HWY_INLINE HWY_ATTR Vf vectorCosine(Vf angle) {
    return vectorSine(hn::Add(angle, number(0.5f * kPi)));
}

/// Step `steps` of the streams, between 0 and 1.
template <int Steps>
HWY_INLINE HWY_ATTR Vu draw(Vu state) {
    constexpr StreamJump kJump = streamJump(Steps);
    return multiplyAdd(state, kJump.factor, kJump.step);
}
template <int Steps>
HWY_INLINE HWY_ATTR Vf drawCentred(Vu state) {
    return hn::Sub(hn::Mul(toFloat(draw<Steps>(state)), number(kTo01)), number(0.5f));
}

HWY_ATTR void placeBands(const WaveletField& field, const WaveletQuery& query, int first,
                         BandGroup& group) {
    const Vf time = number(query.time);
    const Vf latticeX = number(field.latticeDensity * query.x);
    const Vf latticeY = number(field.latticeDensity * query.y);
    for (int at = 0; at < kGroup; at += static_cast<int>(hn::Lanes(kF))) {
        if (first + at >= query.waveCount)
            break;
        Vf omega, amplitude, waveNumber, seedBits;
        hn::LoadInterleaved4(kF, reinterpret_cast<const float*>(query.waves + first + at), omega,
                             amplitude, waveNumber, seedBits);
        const Vf u = hn::Div(hn::Mul(latticeX, waveNumber), number(kTwoPi));
        const Vf v = hn::Div(hn::Mul(latticeY, waveNumber), number(kTwoPi));
        const Vf i = hn::Floor(hn::Add(u, number(0.5f)));
        const Vf j = hn::Floor(hn::Add(v, number(0.5f)));
        const auto onLattice = hn::And(hn::Le(hn::Abs(i), number(kLatticeLimit)),
                                       hn::Le(hn::Abs(j), number(kLatticeLimit)));
        const Vu cellI = hn::BitCast(kU, hn::ConvertTo(kI, hn::IfThenElseZero(onLattice, i)));
        const Vu cellJ = hn::BitCast(kU, hn::ConvertTo(kI, hn::IfThenElseZero(onLattice, j)));
        const Vu seeds = hn::Add(hn::BitCast(kU, seedBits), hn::Set(kU, field.seedTerm));
        const Vu cell = hn::Add(hn::Add(hn::Mul(cellJ, hn::Set(kU, kCellFactorY)), seeds),
                                hn::Mul(cellI, hn::Set(kU, kCellFactorX)));
        hn::Store(u, kF, group.u + at);
        hn::Store(v, kF, group.v + at);
        hn::Store(i, kF, group.nearI + at);
        hn::Store(j, kF, group.nearJ + at);
        hn::Store(cell, kU, group.cell + at);
        hn::Store(hn::IfThenElseZero(onLattice, number(1)), kF, group.onLattice + at);
        hn::Store(waveNumber, kF, group.waveNumber + at);
        hn::Store(amplitude, kF, group.amplitude + at);
        hn::Store(hn::Mul(time, omega), kF, group.timePhase + at);
        Vf loopPhase = hn::Zero(kF);
        if (query.loopGaps)
            loopPhase = hn::Div(hn::Mul(hn::LoadU(kF, query.loopGaps + first + at), time),
                                number(query.loopLength));
        hn::Store(loopPhase, kF, group.loopPhase + at);
    }
}

/// Row `bits` brings the lanes whose bits are set to the front.
template <int Lanes>
struct alignas(64) FrontLanes {
    std::int32_t lane[1 << Lanes][Lanes] = {};
    constexpr FrontLanes() {
        for (int bits = 0; bits < 1 << Lanes; ++bits)
            for (int k = 0, count = 0; k < Lanes; ++k)
                if (bits >> k & 1)
                    lane[bits][count++] = k;
    }
};

/// Appends the lanes that are reached. The library's own way is a copy of its table for every call
/// where the machine has no instruction for it.
HWY_INLINE HWY_ATTR void appendReached(Vu states, Vf weights, hn::Mask<Floats> reached,
                                       WaveletList& list) {
    constexpr int kLanes = static_cast<int>(hn::MaxLanes(kF));
    std::uint32_t* const stateEnd = list.state + list.count;
    float* const weightEnd = list.weight + list.count;
    if constexpr (kLanes == 4 || kLanes == 8) {
        // Of no size where it isn't used.
        static constexpr FrontLanes<kLanes <= 8 ? kLanes : 1> kFront;
        std::uint8_t bits[8] = {};
        hn::StoreMaskBits(kF, reached, bits);
        const auto front = hn::SetTableIndices(kU, kFront.lane[bits[0]]);
        hn::StoreU(hn::TableLookupLanes(states, front), kU, stateEnd);
        const Vu weightBits = hn::BitCast(kU, weights);
        hn::StoreU(hn::BitCast(kF, hn::TableLookupLanes(weightBits, front)), kF, weightEnd);
    } else {
        hn::StoreU(hn::Compress(states, hn::RebindMask(kU, reached)), kU, stateEnd);
        hn::StoreU(hn::Compress(weights, reached), kF, weightEnd);
    }
    list.count += static_cast<int>(hn::CountTrue(kF, reached));
}

/// Lists the wavelets of one band that reach the point.
HWY_INLINE HWY_ATTR void listCells(const BandGroup& group, int band, float fade,
                                   WaveletList& list) {
    constexpr int kLanes = static_cast<int>(hn::MaxLanes(kF));
    const Vf u = number(group.u[band]), v = number(group.v[band]);
    const Vf nearI = number(group.nearI[band]), nearJ = number(group.nearJ[band]);
    const Vu nearCell = hn::Set(kU, group.cell[band]);
    const int before = list.count;
    for (int at = 0; at < kCells; at += kLanes) {
        const Vf alongX = hn::Sub(u, hn::Add(nearI, hn::Load(kF, kCellOffsets.i + at)));
        const Vf alongY = hn::Sub(v, hn::Add(nearJ, hn::Load(kF, kCellOffsets.j + at)));
        const Vu hash = hashCells(hn::Add(nearCell, hn::Load(kU, kCellOffsets.cell + at)));
        const Vu second = draw<1>(hash);
        const Vf a = hn::Sub(hn::Add(hn::Mul(toFloat(hash), number(kTo01)), alongY), number(0.5f));
        const Vf b =
            hn::Sub(hn::Add(hn::Mul(toFloat(second), number(kTo01)), alongX), number(0.5f));
        const Vf r2 = hn::Add(hn::Mul(a, a), hn::Mul(b, b));
        const Vf rest = hn::Sub(number(1), r2);
        const auto reached = hn::And(
            hn::And(hn::Le(hn::Abs(alongX), number(1.5f)), hn::Le(hn::Abs(alongY), number(1.5f))),
            hn::Le(r2, number(1)));
        appendReached(second, hn::Mul(rest, rest), reached, list);
    }
    // What goes beyond the count is written over by the next band.
    for (int at = before; at < list.count; at += kLanes) {
        hn::StoreU(number(group.waveNumber[band]), kF, list.waveNumber + at);
        hn::StoreU(number(group.amplitude[band]), kF, list.amplitude + at);
        hn::StoreU(number(fade), kF, list.fade + at);
        hn::StoreU(number(group.timePhase[band]), kF, list.timePhase + at);
        hn::StoreU(number(group.loopPhase[band]), kF, list.loopPhase + at);
    }
}

HWY_INLINE HWY_ATTR Vf sharpenPhases(Vf phase, float sigma) {
    if (!(sigma > 0.001f))
        return phase;
    Vf theta = phase;
    for (int step = 0; step < 3; ++step) {
        const Vf missing =
            hn::Sub(phase, hn::Add(theta, hn::Mul(number(sigma), vectorCosine(theta))));
        const Vf slope = hn::Sub(number(1), hn::Mul(number(sigma), vectorSine(theta)));
        theta = hn::Add(theta, hn::Div(missing, slope));
    }
    return theta;
}

/// Fills in what one vector of listed wavelets adds.
HWY_INLINE HWY_ATTR void evaluateWavelets(const WaveletField& field, const WaveletQuery& query,
                                          int at, WaveletList& list) {
    const Vu state = hn::Load(kU, list.state + at);
    // From 0, like the plain sum.
    const Vf draws = hn::Add(
        hn::Add(hn::Add(drawCentred<1>(state), drawCentred<2>(state)), drawCentred<3>(state)),
        drawCentred<4>(state));
    const Vf sine = vectorSine(hn::Mul(draws, number(field.spread)));
    const Vf cosine = hn::Sqrt(hn::Sub(number(1), hn::Mul(sine, sine)));
    const Vf windX = number(field.windDir[0]), windY = number(field.windDir[1]);
    const Vf dx = hn::Sub(hn::Mul(cosine, windX), hn::Mul(sine, windY));
    const Vf dy = hn::Add(hn::Mul(cosine, windY), hn::Mul(sine, windX));

    const Vf along = hn::Add(hn::Mul(dx, number(query.x)), hn::Mul(dy, number(query.y)));
    Vf phase = hn::Add(hn::Mul(along, hn::Load(kF, list.waveNumber + at)),
                       hn::Load(kF, list.timePhase + at));
    phase = hn::Add(phase, hn::Mul(toFloat(draw<5>(state)), number(kToAngle)));
    phase = hn::Add(phase, hn::Load(kF, list.loopPhase + at));

    const Vf amplitude =
        hn::Mul(hn::Mul(hn::Load(kF, list.weight + at), hn::Load(kF, list.amplitude + at)),
                hn::Load(kF, list.fade + at));
    if (!field.vectorMode) {
        const Vf height = vectorSine(sharpenPhases(phase, field.sigma));
        hn::Store(hn::Mul(height, amplitude), kF, list.z + at);
        return;
    }
    hn::Store(hn::Mul(vectorSine(phase), amplitude), kF, list.z + at);
    const Vf chop = vectorCosine(phase), choppiness = number(field.choppiness);
    hn::Store(hn::Mul(hn::Mul(hn::Mul(dx, chop), amplitude), choppiness), kF, list.x + at);
    hn::Store(hn::Mul(hn::Mul(hn::Mul(dy, chop), amplitude), choppiness), kF, list.y + at);
}

HWY_ATTR WaveletSum sumWavelets(const WaveletField& field, const WaveletQuery& query) {
    WaveletSum sum;
    BandGroup group;
    WaveletList list;
    for (int first = 0; first < query.waveCount; first += kGroup) {
        placeBands(field, query, first, group);
        list.count = 0;
        const int bands = std::min(query.waveCount - first, kGroup);
        for (int band = 0; band < bands; ++band)
            if (group.onLattice[band] != 0)
                listCells(group, band, first + band + 1 == query.waveCount ? query.lastFade : 1.0f,
                          list);
        for (int at = 0; at < list.count; at += static_cast<int>(hn::Lanes(kF)))
            evaluateWavelets(field, query, at, list);
        // In the order of the plain sum.
        for (int i = 0; i < list.count; ++i)
            sum.z += list.z[i];
        if (field.vectorMode)
            for (int i = 0; i < list.count; ++i) {
                sum.x += list.x[i];
                sum.y += list.y[i];
            }
    }
    return sum;
}

}  // namespace nimbra::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace nimbra {

HWY_EXPORT(sumWavelets);

namespace {

std::vector<WaveletCode> findCodes() {
    std::vector<WaveletCode> codes;
    hwy::ChosenTarget& chosen = hwy::GetChosenTarget();
    // Lower bits are better instruction sets.
    for (std::int64_t left = hwy::SupportedTargets() & HWY_TARGETS; left != 0; left &= left - 1) {
        const std::int64_t target = left & -left;
        chosen.Update(target);
        codes.push_back({hwy::TargetName(target), HWY_DYNAMIC_DISPATCH(sumWavelets)});
    }
    chosen.Update(hwy::SupportedTargets());
    return codes;
}

}  // namespace

const std::vector<WaveletCode>& waveletCodes() {
    static const std::vector<WaveletCode> codes = findCodes();
    return codes;
}

}  // namespace nimbra
#endif
