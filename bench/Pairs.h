// Two ways to do one thing, measured in turns; Bench.cpp says what is printed of them.
#pragma once

#include "Clock.h"
#include "Machine.h"

#include <cstdio>

namespace Bench {

/// Microseconds of the work, on a machine that is prepared before.
template <class Work, class Prepare = void (*)()>
double Measure(Work&& work, Prepare&& prepare = Reset)
{
    prepare();
    const LONGLONG llStart = Now();
    work();
    return Microseconds(Now() - llStart);
}

/// Both works in turns, each as often first as the other.
template <class Other, class Ours, class Prepare = void (*)()>
void MeasurePairs(const char* szName, unsigned cRounds, Other&& other, Ours&& ours, Prepare&& prepare = Reset)
{
    for (unsigned uRound = 0; uRound < cRounds; ++uRound) {
        const bool bOtherFirst = uRound % 2 == 0;
        const double dFirst = bOtherFirst ? Measure(other, prepare) : Measure(ours, prepare);
        const double dSecond = bOtherFirst ? Measure(ours, prepare) : Measure(other, prepare);
        std::printf("pair\t%s\t%.1f\t%.1f\n", szName, bOtherFirst ? dFirst : dSecond, bOtherFirst ? dSecond : dFirst);
        std::fflush(stdout);
    }
}

}  // namespace Bench
