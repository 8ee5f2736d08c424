#include "ctigsm_codec.h"

#include <gsm.h>

#include <cstring>

namespace {
constexpr int kFrameBytes = 33;
constexpr int kFrameSamples = 160;
constexpr int kDecodeError = -50;
} // namespace

CtiGsm_Codec::CtiGsm_Codec()
{
    encoder_init();
    decoder_init();
}

CtiGsm_Codec::~CtiGsm_Codec()
{
    encoder_stop();
    decoder_stop();
}

void CtiGsm_Codec::encoder_init()
{
    encoder_stop();
    m_encoderState = gsm_create();
    m_encoderReady = m_encoderState != nullptr;
}

void CtiGsm_Codec::decoder_init()
{
    decoder_stop();
    m_decoderState = gsm_create();
    if (!m_decoderState)
        return;
    // Voicemail arrives as WAV49: start on the first half of a frame pair.
    int value = 0;
    gsm_option(m_decoderState, GSM_OPT_FRAME_INDEX, &value);
    gsm_option(m_decoderState, GSM_OPT_FRAME_CHAIN, &value);
    value = 1;
    gsm_option(m_decoderState, GSM_OPT_WAV49, &value);
    m_decoderReady = true;
}

void CtiGsm_Codec::encoder_stop()
{
    if (m_encoderState) {
        gsm_destroy(m_encoderState);
        m_encoderState = nullptr;
    }
    m_encoderReady = false;
}

void CtiGsm_Codec::decoder_stop()
{
    if (m_decoderState) {
        gsm_destroy(m_decoderState);
        m_decoderState = nullptr;
    }
    m_decoderReady = false;
}

int CtiGsm_Codec::encode(const short* pcm, char* out)
{
    if (!m_encoderReady)
        return 0;
    gsm_signal samples[kFrameSamples];
    gsm_byte frame[kFrameBytes];
    for (int i = 0; i < m_framesPerPacket; ++i) {
        std::memcpy(samples, pcm, sizeof samples);
        gsm_encode(m_encoderState, samples, frame);
        std::memcpy(out, frame, kFrameBytes);
        pcm += kFrameSamples;
        out += kFrameBytes;
    }
    return kFrameBytes;
}

int CtiGsm_Codec::decode(short* pcm, const char* in, int /*length*/)
{
    if (!m_decoderReady)
        return kDecodeError;
    // One frame per call: the WAV49 decoder keeps the pairing state itself.
    gsm_byte frame[kFrameBytes];
    gsm_signal samples[kFrameSamples];
    std::memcpy(frame, in, kFrameBytes);
    if (gsm_decode(m_decoderState, frame, samples) == -1)
        return kDecodeError;
    std::memcpy(pcm, samples, sizeof samples);
    return m_bytesPerSample * kFrameSamples;
}
