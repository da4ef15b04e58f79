// The measurements as one JSON object.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Statistics.h"

struct ReportFacts {
    std::string input;
    std::string codec;
    std::string silentCodec;     // of sound that is not decoded; empty: none
    uint32_t windowWidth = 0;    // 0 without a window
    uint32_t windowHeight = 0;
};

// Figures of the first channel, sums of all, and a row for each where there are several.
std::string MakeReport(const ReportFacts& facts, const std::vector<Figures>& channels);
