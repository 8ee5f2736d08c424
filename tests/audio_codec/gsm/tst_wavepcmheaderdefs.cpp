#include "wavepcmheaderdefs.h"

#include <QtTest>

#include <cstring>

namespace {

struct NamedTemplate
{
    const char* name;
    WavePcmHeader* header;
    quint32 rate;
    quint16 bits;
    quint16 channels;
};

const NamedTemplate kTemplates[] = {
    {"8k_8b_mono", &wave_header_8k_8b_mono, 8000, 8, 1},
    {"8k_8b_stereo", &wave_header_8k_8b_stereo, 8000, 8, 2},
    {"8k_16b_mono", &wave_header_8k_16b_mono, 8000, 16, 1},
    {"8k_16b_stereo", &wave_header_8k_16b_stereo, 8000, 16, 2},
    {"8k_24b_mono", &wave_header_8k_24b_mono, 8000, 24, 1},
    {"8k_24b_stereo", &wave_header_8k_24b_stereo, 8000, 24, 2},
    {"11k_8b_mono", &wave_header_11k_8b_mono, 11025, 8, 1},
    {"11k_8b_stereo", &wave_header_11k_8b_stereo, 11025, 8, 2},
    {"11k_16b_mono", &wave_header_11k_16b_mono, 11025, 16, 1},
    {"11k_16b_stereo", &wave_header_11k_16b_stereo, 11025, 16, 2},
    {"11k_24b_mono", &wave_header_11k_24b_mono, 11025, 24, 1},
    {"11k_24b_stereo", &wave_header_11k_24b_stereo, 11025, 24, 2},
    {"16k_8b_mono", &wave_header_16k_8b_mono, 16000, 8, 1},
    {"16k_8b_stereo", &wave_header_16k_8b_stereo, 16000, 8, 2},
    {"16k_16b_mono", &wave_header_16k_16b_mono, 16000, 16, 1},
    {"16k_16b_stereo", &wave_header_16k_16b_stereo, 16000, 16, 2},
    {"16k_24b_mono", &wave_header_16k_24b_mono, 16000, 24, 1},
    {"16k_24b_stereo", &wave_header_16k_24b_stereo, 16000, 24, 2},
    {"22k_8b_mono", &wave_header_22k_8b_mono, 22050, 8, 1},
    {"22k_8b_stereo", &wave_header_22k_8b_stereo, 22050, 8, 2},
    {"22k_16b_mono", &wave_header_22k_16b_mono, 22050, 16, 1},
    {"22k_16b_stereo", &wave_header_22k_16b_stereo, 22050, 16, 2},
    {"22k_24b_mono", &wave_header_22k_24b_mono, 22050, 24, 1},
    {"22k_24b_stereo", &wave_header_22k_24b_stereo, 22050, 24, 2},
    {"32k_8b_mono", &wave_header_32k_8b_mono, 32000, 8, 1},
    {"32k_8b_stereo", &wave_header_32k_8b_stereo, 32000, 8, 2},
    {"32k_16b_mono", &wave_header_32k_16b_mono, 32000, 16, 1},
    {"32k_16b_stereo", &wave_header_32k_16b_stereo, 32000, 16, 2},
    {"32k_24b_mono", &wave_header_32k_24b_mono, 32000, 24, 1},
    {"32k_24b_stereo", &wave_header_32k_24b_stereo, 32000, 24, 2},
    {"44k_8b_mono", &wave_header_44k_8b_mono, 44100, 8, 1},
    {"44k_8b_stereo", &wave_header_44k_8b_stereo, 44100, 8, 2},
    {"44k_16b_mono", &wave_header_44k_16b_mono, 44100, 16, 1},
    {"44k_16b_stereo", &wave_header_44k_16b_stereo, 44100, 16, 2},
    {"44k_24b_mono", &wave_header_44k_24b_mono, 44100, 24, 1},
    {"44k_24b_stereo", &wave_header_44k_24b_stereo, 44100, 24, 2},
    {"48k_8b_mono", &wave_header_48k_8b_mono, 48000, 8, 1},
    {"48k_8b_stereo", &wave_header_48k_8b_stereo, 48000, 8, 2},
    {"48k_16b_mono", &wave_header_48k_16b_mono, 48000, 16, 1},
    {"48k_16b_stereo", &wave_header_48k_16b_stereo, 48000, 16, 2},
    {"48k_24b_mono", &wave_header_48k_24b_mono, 48000, 24, 1},
    {"48k_24b_stereo", &wave_header_48k_24b_stereo, 48000, 24, 2},
    {"88k_8b_mono", &wave_header_88k_8b_mono, 88200, 8, 1},
    {"88k_8b_stereo", &wave_header_88k_8b_stereo, 88200, 8, 2},
    {"88k_16b_mono", &wave_header_88k_16b_mono, 88200, 16, 1},
    {"88k_16b_stereo", &wave_header_88k_16b_stereo, 88200, 16, 2},
    {"88k_24b_mono", &wave_header_88k_24b_mono, 88200, 24, 1},
    {"88k_24b_stereo", &wave_header_88k_24b_stereo, 88200, 24, 2},
    {"96k_8b_mono", &wave_header_96k_8b_mono, 96000, 8, 1},
    {"96k_8b_stereo", &wave_header_96k_8b_stereo, 96000, 8, 2},
    {"96k_16b_mono", &wave_header_96k_16b_mono, 96000, 16, 1},
    {"96k_16b_stereo", &wave_header_96k_16b_stereo, 96000, 16, 2},
    {"96k_24b_mono", &wave_header_96k_24b_mono, 96000, 24, 1},
    {"96k_24b_stereo", &wave_header_96k_24b_stereo, 96000, 24, 2},
};

quint32 le32(const unsigned char* p)
{
    return quint32(p[0]) | quint32(p[1]) << 8 | quint32(p[2]) << 16 | quint32(p[3]) << 24;
}

quint16 le16(const unsigned char* p)
{
    return quint16(p[0] | p[1] << 8);
}

} // namespace

class TestWavePcmHeaderDefs : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void templates_data();
    void templates();
    void map_coversEveryTemplateOnce();
};

void TestWavePcmHeaderDefs::templates_data()
{
    QTest::addColumn<int>("index");
    for (int i = 0; i < int(std::size(kTemplates)); ++i)
        QTest::newRow(kTemplates[i].name) << i;
}

void TestWavePcmHeaderDefs::templates()
{
    QFETCH(int, index);
    const NamedTemplate& t = kTemplates[index];
    const unsigned char* h = t.header->data();
    const QByteArray name(t.name);

    // The templates that have always deviated from the canonical header.
    const quint16 channelsField = (t.rate == 16000 && t.channels == 2) ? 1 : t.channels;
    quint32 byteRate = t.rate * t.channels * t.bits / 8;
    if (name == "44k_8b_stereo")
        byteRate = 82200;
    else if (name == "44k_24b_stereo")
        byteRate = 264592;

    QCOMPARE(QByteArray(reinterpret_cast<const char*>(h), 4), QByteArray("RIFF"));
    QCOMPARE(le32(h + 4), 0u);
    QCOMPARE(QByteArray(reinterpret_cast<const char*>(h + 8), 8), QByteArray("WAVEfmt "));
    QCOMPARE(le32(h + 16), 16u);
    QCOMPARE(le16(h + 20), quint16(1));
    QCOMPARE(le16(h + 22), channelsField);
    QCOMPARE(le32(h + 24), t.rate);
    QCOMPARE(le32(h + 28), byteRate);
    QCOMPARE(le16(h + 32), quint16(t.channels * t.bits / 8));
    QCOMPARE(le16(h + 34), t.bits);
    QCOMPARE(QByteArray(reinterpret_cast<const char*>(h + 36), 4), QByteArray("data"));
    QCOMPARE(le32(h + 40), 0u);

    // The map reaches this very array under the type of its format.
    QMap<pcm_wav_type, unsigned char*> map;
    mapPCMWavFormatsInit(&map);
    const pcm_wav_type type = WaveFileParser::getPcmType(char(t.bits), t.rate, char(t.channels));
    QCOMPARE(map.value(type), t.header->data());
}

void TestWavePcmHeaderDefs::map_coversEveryTemplateOnce()
{
    QMap<pcm_wav_type, unsigned char*> map;
    WaveFileParser::mapPCMWavFormatsInit(&map);
    QCOMPARE(map.size(), 54);
    const QList<unsigned char*> headers = map.values();
    QCOMPARE(QSet<unsigned char*>(headers.begin(), headers.end()).size(), 54);
}

QTEST_APPLESS_MAIN(TestWavePcmHeaderDefs)
#include "tst_wavepcmheaderdefs.moc"
