// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The walk of a colour ray through all its segments, nearest first: private to the colour loops.
#pragma once

#include <cstdint>
#include <vector>

#include "volume/illuminator.h"
#include "volume/ray_segment.h"

namespace nimbra {

/// A walk that gets no further ends after so many rounds.
inline constexpr int kMaxMarchRounds = 1000000;

/// Segments that the walk has reached, in no order.
class ActiveSegments {
public:
    explicit ActiveSegments(int capacity) {
        if (capacity > kInline)
            more.resize(static_cast<std::size_t>(capacity));
        entries = capacity > kInline ? more.data() : few;
    }
    bool empty() const { return count == 0; }
    bool hasOne() const { return count == 1; }
    void add(RaySegment& segment) { entries[count++] = &segment; }
    /// The index of the segment with the smallest tCur, the first of equals.
    int nearest() const {
        int best = 0;
        for (int i = 1; i < count; ++i)
            best = entries[i]->tCur < entries[best]->tCur ? i : best;
        return best;
    }
    void remove(int index) { entries[index] = entries[--count]; }
    RaySegment& operator[](int index) { return *entries[index]; }

private:
    static constexpr int kInline = 32;
    RaySegment* few[kInline];
    std::vector<RaySegment*> more;
    RaySegment** entries;
    int count = 0;
};

/// Advances a segment by one step; a step that found nothing is clear.
void advance(RaySegment& segment, Illuminator& illuminator, float time, bool first);

/// Reports a walk that gets no further.
void reportColorCycle(const Illuminator& illuminator);

/// Sums over a ray: what is composited so far.
struct ColorMarch {
    TessUtils::Color color;
    TessUtils::Color transmittance{1, 1, 1};
    TessUtils::Color elements[kElementCount];
    std::uint32_t elementMask = 0;

    /// Starts the elements of a ray.
    void begin(Illuminator& illuminator);
    /// Sets the step's depth element.
    void setDepth(const RaySegment& segment, Illuminator& illuminator) const;
    /// Adds the elements of the step at hand.
    void addElements(const Illuminator& illuminator, const TessUtils::Color& weight);
    /// Divides the age by the opacity and hands the elements over.
    void finish(Illuminator& illuminator, const TessUtils::Color& opacity);
};

/// The colour of the segment's step as it counts for this ray.
TessUtils::Color stepColor(const RaySegment& segment, Illuminator& illuminator);

inline bool showsAnything(const RaySegment& s) {
    return s.alpha.r > 0 || s.alpha.g > 0 || s.alpha.b > 0 || s.color.r > 0 || s.color.g > 0 ||
           s.color.b > 0;
}

/// Steps the active segments up to `limit`. False when `composite` ended the ray; it is told when
/// nothing can come between the segment's steps.
template <class Composite>
bool walkTo(float limit, ActiveSegments& active, Illuminator& illuminator, float time,
            Composite& composite) {
    int round = 0;
    for (; round < kMaxMarchRounds && !active.empty(); ++round) {
        ++illuminator.stepCounter;
        const int index = active.nearest();
        RaySegment& segment = active[index];
        if (segment.tCur > limit)
            return true;
        const bool alone = active.hasOne() && segment.tEnd <= limit;
        if (showsAnything(segment) && !composite(segment, alone))
            return false;
        if ((segment.state & kSegmentFinished) == 0)
            advance(segment, illuminator, time, false);
        else
            active.remove(index);
    }
    if (round == kMaxMarchRounds)
        reportColorCycle(illuminator);
    return true;
}

/// Walks all segments; a segment joins where its own stretch begins. Each step that shows anything
/// is given to `composite(segment, alone)`, which answers false to end the ray.
template <class Composite>
void walkNearestFirst(RayData& rayData, Illuminator& illuminator, float time,
                      Composite&& composite) {
    ActiveSegments active(rayData.segmentCount);
    RaySegment* next = rayData.head;
    for (;;) {
        const float limit = next ? next->tCur : rayData.gmaxt;
        if (!walkTo(limit, active, illuminator, time, composite) || !next)
            return;
        RaySegment& joining = *next;
        next = joining.next;
        active.add(joining);
        advance(joining, illuminator, time, true);
    }
}

/// The three loops. `alpha` takes the opacity; colours the sum over the volumes.
void marchColor(RayData& rayData, float time, TessUtils::Color& color, TessUtils::Color& alpha);
void marchProbabilistic(RayData& rayData, float time, int samples, TessUtils::Color& color,
                        TessUtils::Color& alpha);
void marchTransparency(RayData& rayData, float time, bool isGI, TessUtils::Color& alpha);

}  // namespace nimbra
