// The settings block of DnFilterParams on the host's scales, and its
// conversion into and out of JNoiseFilterSettings.
//
// Each float field has a host scale (low, middle, high) from the public
// header's DnHostScales table and a setting with a range (minimum, default,
// maximum) from JNoiseFilterSettings. The conversion is piecewise linear and
// maps the host middle onto the default:
//   v <  middle: min + ((default - min) * (v - low)) / (middle - low)
//   v >= middle: default + ((max - default) * (v - middle)) / (high - middle)
// evaluated left to right in single precision, with no clamping: values off
// the scale extrapolate along the outer segment. Reading back uses the same
// function with the two triples exchanged.
//
// The host has one chroma value: it is written to both Cr and Cb and read
// back from Cr alone (Cb is ignored on purpose).
#pragma once

#include "murmex/murmex.h"

class JNoiseFilterSettings;

// The piecewise-linear map from the triple (low, middle, high) onto
// (min, def, max); see above.
float dnMapScale(float v, float low, float middle, float high, float min, float def, float max);

// Writes the settings block of params (lumStrength .. lowFrequency) into
// settings; the other fields of params are not read.
void dnSettingsFromHost(const DnFilterParams& params, JNoiseFilterSettings& settings);

// Writes settings into the settings block of params; the other fields of
// params are left untouched.
void dnSettingsToHost(const JNoiseFilterSettings& settings, DnFilterParams& params);
