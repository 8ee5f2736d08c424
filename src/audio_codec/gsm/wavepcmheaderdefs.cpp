#include "wavepcmheaderdefs.h"

#include <cstdint>

namespace {

constexpr void put16(WavePcmHeader& h, int offset, std::uint16_t value)
{
    h[offset] = static_cast<unsigned char>(value & 0xff);
    h[offset + 1] = static_cast<unsigned char>(value >> 8);
}

constexpr void put32(WavePcmHeader& h, int offset, std::uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        h[offset + i] = static_cast<unsigned char>((value >> (8 * i)) & 0xff);
}

constexpr void putTag(WavePcmHeader& h, int offset, const char (&tag)[5])
{
    for (int i = 0; i < 4; ++i)
        h[offset + i] = static_cast<unsigned char>(tag[i]);
}

constexpr WavePcmHeader pcmHeader(std::uint32_t rate, std::uint16_t bits, std::uint16_t channels)
{
    WavePcmHeader h {};
    putTag(h, 0, "RIFF");
    putTag(h, 8, "WAVE");
    putTag(h, 12, "fmt ");
    put32(h, 16, 16);
    put16(h, 20, 1);
    put16(h, 22, channels);
    put32(h, 24, rate);
    put32(h, 28, rate * channels * bits / 8);
    put16(h, 32, static_cast<std::uint16_t>(channels * bits / 8));
    put16(h, 34, bits);
    putTag(h, 36, "data");
    return h;
}

// A few templates have always carried odd values; readers of our files have
// lived with them, so they stay as they are.
constexpr WavePcmHeader withChannelsField(WavePcmHeader h, std::uint16_t channels)
{
    put16(h, 22, channels);
    return h;
}

constexpr WavePcmHeader withByteRate(WavePcmHeader h, std::uint32_t bytesPerSecond)
{
    put32(h, 28, bytesPerSecond);
    return h;
}

} // namespace

WavePcmHeader wave_header_8k_8b_mono = pcmHeader(8000, 8, 1);
WavePcmHeader wave_header_8k_8b_stereo = pcmHeader(8000, 8, 2);
WavePcmHeader wave_header_8k_16b_mono = pcmHeader(8000, 16, 1);
WavePcmHeader wave_header_8k_16b_stereo = pcmHeader(8000, 16, 2);
WavePcmHeader wave_header_8k_24b_mono = pcmHeader(8000, 24, 1);
WavePcmHeader wave_header_8k_24b_stereo = pcmHeader(8000, 24, 2);
WavePcmHeader wave_header_11k_8b_mono = pcmHeader(11025, 8, 1);
WavePcmHeader wave_header_11k_8b_stereo = pcmHeader(11025, 8, 2);
WavePcmHeader wave_header_11k_16b_mono = pcmHeader(11025, 16, 1);
WavePcmHeader wave_header_11k_16b_stereo = pcmHeader(11025, 16, 2);
WavePcmHeader wave_header_11k_24b_mono = pcmHeader(11025, 24, 1);
WavePcmHeader wave_header_11k_24b_stereo = pcmHeader(11025, 24, 2);
WavePcmHeader wave_header_16k_8b_mono = pcmHeader(16000, 8, 1);
WavePcmHeader wave_header_16k_8b_stereo = withChannelsField(pcmHeader(16000, 8, 2), 1);
WavePcmHeader wave_header_16k_16b_mono = pcmHeader(16000, 16, 1);
WavePcmHeader wave_header_16k_16b_stereo = withChannelsField(pcmHeader(16000, 16, 2), 1);
WavePcmHeader wave_header_16k_24b_mono = pcmHeader(16000, 24, 1);
WavePcmHeader wave_header_16k_24b_stereo = withChannelsField(pcmHeader(16000, 24, 2), 1);
WavePcmHeader wave_header_22k_8b_mono = pcmHeader(22050, 8, 1);
WavePcmHeader wave_header_22k_8b_stereo = pcmHeader(22050, 8, 2);
WavePcmHeader wave_header_22k_16b_mono = pcmHeader(22050, 16, 1);
WavePcmHeader wave_header_22k_16b_stereo = pcmHeader(22050, 16, 2);
WavePcmHeader wave_header_22k_24b_mono = pcmHeader(22050, 24, 1);
WavePcmHeader wave_header_22k_24b_stereo = pcmHeader(22050, 24, 2);
WavePcmHeader wave_header_32k_8b_mono = pcmHeader(32000, 8, 1);
WavePcmHeader wave_header_32k_8b_stereo = pcmHeader(32000, 8, 2);
WavePcmHeader wave_header_32k_16b_mono = pcmHeader(32000, 16, 1);
WavePcmHeader wave_header_32k_16b_stereo = pcmHeader(32000, 16, 2);
WavePcmHeader wave_header_32k_24b_mono = pcmHeader(32000, 24, 1);
WavePcmHeader wave_header_32k_24b_stereo = pcmHeader(32000, 24, 2);
WavePcmHeader wave_header_44k_8b_mono = pcmHeader(44100, 8, 1);
WavePcmHeader wave_header_44k_8b_stereo = withByteRate(pcmHeader(44100, 8, 2), 82200);
WavePcmHeader wave_header_44k_16b_mono = pcmHeader(44100, 16, 1);
WavePcmHeader wave_header_44k_16b_stereo = pcmHeader(44100, 16, 2);
WavePcmHeader wave_header_44k_24b_mono = pcmHeader(44100, 24, 1);
WavePcmHeader wave_header_44k_24b_stereo = withByteRate(pcmHeader(44100, 24, 2), 264592);
WavePcmHeader wave_header_48k_8b_mono = pcmHeader(48000, 8, 1);
WavePcmHeader wave_header_48k_8b_stereo = pcmHeader(48000, 8, 2);
WavePcmHeader wave_header_48k_16b_mono = pcmHeader(48000, 16, 1);
WavePcmHeader wave_header_48k_16b_stereo = pcmHeader(48000, 16, 2);
WavePcmHeader wave_header_48k_24b_mono = pcmHeader(48000, 24, 1);
WavePcmHeader wave_header_48k_24b_stereo = pcmHeader(48000, 24, 2);
WavePcmHeader wave_header_88k_8b_mono = pcmHeader(88200, 8, 1);
WavePcmHeader wave_header_88k_8b_stereo = pcmHeader(88200, 8, 2);
WavePcmHeader wave_header_88k_16b_mono = pcmHeader(88200, 16, 1);
WavePcmHeader wave_header_88k_16b_stereo = pcmHeader(88200, 16, 2);
WavePcmHeader wave_header_88k_24b_mono = pcmHeader(88200, 24, 1);
WavePcmHeader wave_header_88k_24b_stereo = pcmHeader(88200, 24, 2);
WavePcmHeader wave_header_96k_8b_mono = pcmHeader(96000, 8, 1);
WavePcmHeader wave_header_96k_8b_stereo = pcmHeader(96000, 8, 2);
WavePcmHeader wave_header_96k_16b_mono = pcmHeader(96000, 16, 1);
WavePcmHeader wave_header_96k_16b_stereo = pcmHeader(96000, 16, 2);
WavePcmHeader wave_header_96k_24b_mono = pcmHeader(96000, 24, 1);
WavePcmHeader wave_header_96k_24b_stereo = pcmHeader(96000, 24, 2);

void mapPCMWavFormatsInit(QMap<pcm_wav_type, unsigned char*>* map)
{
    if (!map)
        return;
    const struct
    {
        pcm_wav_type type;
        WavePcmHeader* header;
    } templates[] = {
        {PCM_WAV_8K_8B_MONO, &wave_header_8k_8b_mono},
        {PCM_WAV_8K_8B_STEREO, &wave_header_8k_8b_stereo},
        {PCM_WAV_8K_16B_MONO, &wave_header_8k_16b_mono},
        {PCM_WAV_8K_16B_STEREO, &wave_header_8k_16b_stereo},
        {PCM_WAV_8K_24B_MONO, &wave_header_8k_24b_mono},
        {PCM_WAV_8K_24B_STEREO, &wave_header_8k_24b_stereo},
        {PCM_WAV_11K_8B_MONO, &wave_header_11k_8b_mono},
        {PCM_WAV_11K_8B_STEREO, &wave_header_11k_8b_stereo},
        {PCM_WAV_11K_16B_MONO, &wave_header_11k_16b_mono},
        {PCM_WAV_11K_16B_STEREO, &wave_header_11k_16b_stereo},
        {PCM_WAV_11K_24B_MONO, &wave_header_11k_24b_mono},
        {PCM_WAV_11K_24B_STEREO, &wave_header_11k_24b_stereo},
        {PCM_WAV_16K_8B_MONO, &wave_header_16k_8b_mono},
        {PCM_WAV_16K_8B_STEREO, &wave_header_16k_8b_stereo},
        {PCM_WAV_16K_16B_MONO, &wave_header_16k_16b_mono},
        {PCM_WAV_16K_16B_STEREO, &wave_header_16k_16b_stereo},
        {PCM_WAV_16K_24B_MONO, &wave_header_16k_24b_mono},
        {PCM_WAV_16K_24B_STEREO, &wave_header_16k_24b_stereo},
        {PCM_WAV_22K_8B_MONO, &wave_header_22k_8b_mono},
        {PCM_WAV_22K_8B_STEREO, &wave_header_22k_8b_stereo},
        {PCM_WAV_22K_16B_MONO, &wave_header_22k_16b_mono},
        {PCM_WAV_22K_16B_STEREO, &wave_header_22k_16b_stereo},
        {PCM_WAV_22K_24B_MONO, &wave_header_22k_24b_mono},
        {PCM_WAV_22K_24B_STEREO, &wave_header_22k_24b_stereo},
        {PCM_WAV_32K_8B_MONO, &wave_header_32k_8b_mono},
        {PCM_WAV_32K_8B_STEREO, &wave_header_32k_8b_stereo},
        {PCM_WAV_32K_16B_MONO, &wave_header_32k_16b_mono},
        {PCM_WAV_32K_16B_STEREO, &wave_header_32k_16b_stereo},
        {PCM_WAV_32K_24B_MONO, &wave_header_32k_24b_mono},
        {PCM_WAV_32K_24B_STEREO, &wave_header_32k_24b_stereo},
        {PCM_WAV_44K_8B_MONO, &wave_header_44k_8b_mono},
        {PCM_WAV_44K_8B_STEREO, &wave_header_44k_8b_stereo},
        {PCM_WAV_44K_16B_MONO, &wave_header_44k_16b_mono},
        {PCM_WAV_44K_16B_STEREO, &wave_header_44k_16b_stereo},
        {PCM_WAV_44K_24B_MONO, &wave_header_44k_24b_mono},
        {PCM_WAV_44K_24B_STEREO, &wave_header_44k_24b_stereo},
        {PCM_WAV_48K_8B_MONO, &wave_header_48k_8b_mono},
        {PCM_WAV_48K_8B_STEREO, &wave_header_48k_8b_stereo},
        {PCM_WAV_48K_16B_MONO, &wave_header_48k_16b_mono},
        {PCM_WAV_48K_16B_STEREO, &wave_header_48k_16b_stereo},
        {PCM_WAV_48K_24B_MONO, &wave_header_48k_24b_mono},
        {PCM_WAV_48K_24B_STEREO, &wave_header_48k_24b_stereo},
        {PCM_WAV_88K_8B_MONO, &wave_header_88k_8b_mono},
        {PCM_WAV_88K_8B_STEREO, &wave_header_88k_8b_stereo},
        {PCM_WAV_88K_16B_MONO, &wave_header_88k_16b_mono},
        {PCM_WAV_88K_16B_STEREO, &wave_header_88k_16b_stereo},
        {PCM_WAV_88K_24B_MONO, &wave_header_88k_24b_mono},
        {PCM_WAV_88K_24B_STEREO, &wave_header_88k_24b_stereo},
        {PCM_WAV_96K_8B_MONO, &wave_header_96k_8b_mono},
        {PCM_WAV_96K_8B_STEREO, &wave_header_96k_8b_stereo},
        {PCM_WAV_96K_16B_MONO, &wave_header_96k_16b_mono},
        {PCM_WAV_96K_16B_STEREO, &wave_header_96k_16b_stereo},
        {PCM_WAV_96K_24B_MONO, &wave_header_96k_24b_mono},
        {PCM_WAV_96K_24B_STEREO, &wave_header_96k_24b_stereo},
    };
    for (const auto& t : templates)
        map->insert(t.type, t.header->data());
}
