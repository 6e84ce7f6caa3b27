// Separate images processed by separate objects on separate threads give the
// bytes of the same work done one after the other (the library keeps no shared
// state between such calls; the trace file is shared and decided once). Run
// under ThreadSanitizer by the thread-checking build.
#include <gtest/gtest.h>

#include <thread>

#include "kevra/filtre.h"
#include "kevra/sequenceur.h"
#include "seq_support.h"

using namespace seq_test;
using S = kevra::CSequenceur;

namespace {

std::vector<uint8_t> chain(int bpp, uint32_t seed)
{
    RandomImage source(37, 23, bpp, seed);
    CSequenceur seq;
    EXPECT_TRUE(add_steps(seq, {{S::e_FiltreMedian, median(0.2, 3)},
                                {S::e_UnsharpMasking, unsharp(1.5f, 0.75f, 0.25f, 100.0f, 50.0f, 0, 0, 2)},
                                {S::e_Filtre, filter(kevra::CFiltre::Filtre_Gaussien, 5, 1.0f)},
                                {S::e_EgalisationHistogramme, stretch(0.01f, 0.99f)},
                                {S::e_LUT_LuminositeContrasteGamma, tone(0.1f, 1.2f, 0.8f)}}));
    EXPECT_TRUE(seq.Filtrer(&source.image));
    return pixels(source.image);
}

} // namespace

class SequencerThreads : public TracedTest {};

TEST_F(SequencerThreads, SeparateImagesOnSeparateThreadsMatchTheSequentialRuns)
{
    const int depths[] = {8, 16, 24, 8, 16, 24};
    std::vector<std::vector<uint8_t>> sequential, parallel(6);
    for (int i = 0; i < 6; ++i)
        sequential.push_back(chain(depths[i], 100 + i));
    std::vector<std::thread> threads;
    for (int i = 0; i < 6; ++i)
        threads.emplace_back([&, i] { parallel[i] = chain(depths[i], 100 + i); });
    for (std::thread & t : threads)
        t.join();
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(parallel[i], sequential[i]) << "image " << i;
}
