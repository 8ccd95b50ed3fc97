#include "host/host_settings.h"

#include <cstdlib>
#include <random>

#include <gtest/gtest.h>

namespace murmex_host {
namespace {

TEST(HostSettings, DefaultsAreTheScaleMiddlesWithoutSharpening)
{
    DnFilterParams params{};
    setDefaultSettings(params);
    EXPECT_EQ(params.lumStrength, 10.0f);
    EXPECT_EQ(params.lumSmoothness, 10.0f);
    EXPECT_EQ(params.lumContrast, 10.0f);
    EXPECT_EQ(params.chromaStrength, 10.0f);
    EXPECT_EQ(params.chromaSmoothness, 10.0f);
    EXPECT_EQ(params.chromaContrast, 10.0f);
    EXPECT_EQ(params.sharpenAmount, 0.0f);
    EXPECT_EQ(params.sharpenRadius, 1.7f);
    EXPECT_EQ(params.suppressHalos, 1);
    EXPECT_EQ(params.lowFrequency, 0);
}

TEST(HostSettings, FormatFloatReadsBackExactlyAndAvoidsNeedlessExponents)
{
    EXPECT_EQ(formatFloat(20.0f), "20");
    EXPECT_EQ(formatFloat(400.0f), "400");
    EXPECT_EQ(formatFloat(0.4f), "0.4");
    EXPECT_EQ(formatFloat(1.7f), "1.7");
    EXPECT_EQ(formatFloat(-1.0f), "-1");
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> any(-1000.0f, 1000.0f);
    for (int i = 0; i < 10000; ++i) {
        const float v = any(rng) * (i % 3 == 0 ? 1e-6f : 1.0f);
        EXPECT_EQ(std::strtof(formatFloat(v).c_str(), nullptr), v);
    }
}

TEST(HostSettings, ScaleTextShowsTheRowsNumbers)
{
    EXPECT_EQ(scaleText(0), "0 to 20, middle 10");
    EXPECT_EQ(scaleText(7), "0.4 to 3, middle 1.7");
}

TEST(HostSettings, RowsAreFoundByName)
{
    for (int i = 0; i < DnHostScaleCount; ++i)
        EXPECT_EQ(hostScaleRow(DnHostScales[i].name), i);
    EXPECT_EQ(hostScaleRow("sharpness"), -1);
    EXPECT_EQ(hostScaleRow(""), -1);
}

}  // namespace
}  // namespace murmex_host
