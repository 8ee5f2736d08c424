#pragma once

#include "telvix_export.h"

struct gsm_state;

/// \brief GSM 06.10 full-rate codec, one 20 ms frame (160 samples) per call.
///
/// The decoder reads the WAV49 packing of wave files (pairs of 33 and 32
/// bytes, so calls must follow the frames in order); the encoder writes plain
/// 33-byte frames.
class TELVIX_EXPORT CtiGsm_Codec
{
public:
    CtiGsm_Codec();
    ~CtiGsm_Codec();
    CtiGsm_Codec(const CtiGsm_Codec&) = delete;
    CtiGsm_Codec& operator=(const CtiGsm_Codec&) = delete;

    void encoder_init();
    void decoder_init();
    void encoder_stop();
    void decoder_stop();

    bool isEncoderReady() const { return m_encoderReady; }
    bool isDecoderReady() const { return m_decoderReady; }

    /// Encodes 160 samples of `pcm` into 33 bytes at `out`; returns 33, or 0
    /// without an encoder.
    int encode(const short* pcm, char* out);

    /// Decodes the frame at `in` into 160 samples at `pcm`. Always reads 33
    /// bytes, whatever `length` says. Returns the bytes written (320), or -50
    /// when the frame is rejected or there is no decoder.
    int decode(short* pcm, const char* in, int length);

private:
    bool m_encoderReady = false;
    bool m_decoderReady = false;
    int m_reserved = 0;
    int m_framesPerPacket = 1;
    int m_bytesPerSample = 2;
    int m_framesScale = 1;
    gsm_state* m_encoderState = nullptr;
    gsm_state* m_decoderState = nullptr;
};
