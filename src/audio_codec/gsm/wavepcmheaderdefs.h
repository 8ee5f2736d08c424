#pragma once

#include "telvix_export.h"
#include "wavefileparser.h"

#include <QMap>

#include <array>

/// A canonical 44-byte PCM RIFF header; the RIFF size (offset 4) and the data
/// size (offset 40) are 0 until a writer fills them in.
using WavePcmHeader = std::array<unsigned char, 44>;

// One template per rate (kHz), bits per sample and layout. They are mutable:
// WaveFileParser::createPcmWavFile() writes the sizes into them.
TELVIX_EXPORT extern WavePcmHeader wave_header_8k_8b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_8k_8b_stereo;
TELVIX_EXPORT extern WavePcmHeader wave_header_8k_16b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_8k_16b_stereo;
TELVIX_EXPORT extern WavePcmHeader wave_header_8k_24b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_8k_24b_stereo;
TELVIX_EXPORT extern WavePcmHeader wave_header_11k_8b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_11k_8b_stereo;
TELVIX_EXPORT extern WavePcmHeader wave_header_11k_16b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_11k_16b_stereo;
TELVIX_EXPORT extern WavePcmHeader wave_header_11k_24b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_11k_24b_stereo;
TELVIX_EXPORT extern WavePcmHeader wave_header_16k_8b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_16k_8b_stereo;
TELVIX_EXPORT extern WavePcmHeader wave_header_16k_16b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_16k_16b_stereo;
TELVIX_EXPORT extern WavePcmHeader wave_header_16k_24b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_16k_24b_stereo;
TELVIX_EXPORT extern WavePcmHeader wave_header_22k_8b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_22k_8b_stereo;
TELVIX_EXPORT extern WavePcmHeader wave_header_22k_16b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_22k_16b_stereo;
TELVIX_EXPORT extern WavePcmHeader wave_header_22k_24b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_22k_24b_stereo;
TELVIX_EXPORT extern WavePcmHeader wave_header_32k_8b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_32k_8b_stereo;
TELVIX_EXPORT extern WavePcmHeader wave_header_32k_16b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_32k_16b_stereo;
TELVIX_EXPORT extern WavePcmHeader wave_header_32k_24b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_32k_24b_stereo;
TELVIX_EXPORT extern WavePcmHeader wave_header_44k_8b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_44k_8b_stereo;
TELVIX_EXPORT extern WavePcmHeader wave_header_44k_16b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_44k_16b_stereo;
TELVIX_EXPORT extern WavePcmHeader wave_header_44k_24b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_44k_24b_stereo;
TELVIX_EXPORT extern WavePcmHeader wave_header_48k_8b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_48k_8b_stereo;
TELVIX_EXPORT extern WavePcmHeader wave_header_48k_16b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_48k_16b_stereo;
TELVIX_EXPORT extern WavePcmHeader wave_header_48k_24b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_48k_24b_stereo;
TELVIX_EXPORT extern WavePcmHeader wave_header_88k_8b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_88k_8b_stereo;
TELVIX_EXPORT extern WavePcmHeader wave_header_88k_16b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_88k_16b_stereo;
TELVIX_EXPORT extern WavePcmHeader wave_header_88k_24b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_88k_24b_stereo;
TELVIX_EXPORT extern WavePcmHeader wave_header_96k_8b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_96k_8b_stereo;
TELVIX_EXPORT extern WavePcmHeader wave_header_96k_16b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_96k_16b_stereo;
TELVIX_EXPORT extern WavePcmHeader wave_header_96k_24b_mono;
TELVIX_EXPORT extern WavePcmHeader wave_header_96k_24b_stereo;

/// Fills `map` with every pcm_wav_type and its template.
TELVIX_EXPORT void mapPCMWavFormatsInit(QMap<pcm_wav_type, unsigned char*>* map);
