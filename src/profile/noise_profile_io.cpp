// The noise-profile files: reading the dense Version 1 layout and the stream
// profile (versions 44546, 44547, 44548), writing the stream profile.
//
// Stream profile, big-endian 32-bit words:
//   version (44548 written), 20, header text block (version > 44546),
//   header record (by version), sample count n, n samples of 18 floats,
//   filter settings.
// Version 1 profile, little-endian: three channel blocks (Y, Cr, Cb) of
//   magic 13243546, reference colour (3 floats), weight count m, m weights,
//   pair count p, p float pairs (ignored), 512 grid values.
//
// A corrupt or hostile file ends in a JEx: every length and count the stream
// reader meets is checked against the bytes that remain before anything is
// allocated for it, so a lying length cannot make the reader allocate more
// than the file holds. Valid files read exactly as without the checks.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <vector>

#include "base/byte_stream.h"
#include "base/ex.h"
#include "base/file_stream.h"
#include "base/mem_device.h"
#include "base/qtless/qbytearray.h"
#include "base/qtless/qdatastream.h"
#include "base/qtless/qfile.h"
#include "base/qtless/qobject.h"
#include "color/lab_coord.h"
#include "color/pixel.h"
#include "filter/noise_filter_settings.h"
#include "profile/header_text.h"
#include "profile/noise_profile.h"

using qtless::QByteArray;
using qtless::QDataStream;
using qtless::QFile;
using qtless::QObject;
using qtless::QString;

namespace {

constexpr unsigned int kVersion44546 = 44546;
constexpr unsigned int kVersion44547 = 44547;
constexpr unsigned int kVersion44548 = 44548;
// Written after the version; readers ignore it.
constexpr int kSecondWord = 20;
constexpr int kTaggedFieldCount = 17;

enum FieldTag { TagString = 0, TagInteger = 1, TagFloat = 2 };

constexpr int kV1Magic = 13243546;
constexpr int kV1MaxWeights = 5;
constexpr int kGridCells = 512;
constexpr int kSampleBytes = 18 * 4;

// Where the stream reader's bytes come from, for looking ahead at a length
// before the stream reads it: the caller's memory block, or the file through
// a second, read-only descriptor.
class ByteSource {
public:
    ByteSource(const unsigned char* data, int length) : data_(data), size_(length > 0 ? length : 0) {}

    explicit ByteSource(const QString& path)
    {
        fd_ = ::open(path.utf8(), O_RDONLY);
        struct stat st;
        if (fd_ >= 0 && ::fstat(fd_, &st) == 0)
            size_ = st.st_size;
    }

    ~ByteSource()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }

    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;

    long long size() const { return size_; }

    // The big-endian 32-bit word at offset; false when it is not all there.
    bool peekU32(long long offset, unsigned int& v) const
    {
        if (offset < 0 || offset + 4 > size_)
            return false;
        unsigned char b[4];
        if (data_) {
            std::memcpy(b, data_ + offset, 4);
        } else if (fd_ < 0 || ::pread(fd_, b, 4, offset) != 4) {
            return false;
        }
        v = (static_cast<unsigned int>(b[0]) << 24) | (static_cast<unsigned int>(b[1]) << 16) |
            (static_cast<unsigned int>(b[2]) << 8) | static_cast<unsigned int>(b[3]);
        return true;
    }

private:
    const unsigned char* data_ = nullptr;
    int fd_ = -1;
    long long size_ = 0;
};

[[noreturn]] void endOfFile()
{
    throw JEx(QObject::tr("Unexpected end of file"));
}

// The stream reader's view of a QDataStream: every value goes through the
// stream as usual, while the reader keeps count of the bytes taken so that
// byte blocks and counts can be checked against what remains.
class StreamReader {
public:
    StreamReader(QDataStream& s, const ByteSource& src) : s_(s), src_(src) {}

    int getInt()
    {
        int v;
        s_ >> v;
        pos_ += 4;
        return v;
    }

    unsigned int getUInt()
    {
        unsigned int v;
        s_ >> v;
        pos_ += 4;
        return v;
    }

    float getFloat()
    {
        float v;
        s_ >> v;
        pos_ += 4;
        return v;
    }

    // As QDataStream's text operator: a length, the bytes, the text up to the
    // first zero byte.
    QString getString()
    {
        const unsigned int n = checkBlock();
        QString v;
        s_ >> v;
        pos_ += 4 + static_cast<long long>(n);
        return v;
    }

    // Reads a byte block and throws it away.
    void skipBlock()
    {
        const unsigned int n = checkBlock();
        char* p = nullptr;
        unsigned int read = 0;
        s_.readBytes(p, read);
        delete[] p;
        pos_ += 4 + static_cast<long long>(n);
    }

    // Throws the stream's end-of-data error early when count items of
    // itemBytes each cannot all be in the data: reading them would run out.
    // A last value may end up to three bytes past the data without an error,
    // hence the slack.
    void expectItems(long long count, long long itemBytes) const
    {
        if (count > 0 && count * itemBytes > remaining() + 3)
            endOfFile();
    }

    void getSample(JNoiseSample& sample)
    {
        s_ >> sample;
        pos_ += kSampleBytes;
    }

private:
    long long remaining() const { return src_.size() - pos_; }

    // The length of the byte block about to be read, refused when the block
    // would run past the data; the stream would fail on it anyway, after
    // allocating the whole length. The messages are the stream's own.
    unsigned int checkBlock() const
    {
        unsigned int n;
        if (!src_.peekU32(pos_, n))
            endOfFile();
        if (static_cast<long long>(n) > remaining() - 4) {
            if (n > JByteStream::BufferSize)
                throw JEx(QObject::tr("Unexpected end of input"));
            endOfFile();
        }
        return n;
    }

    QDataStream& s_;
    const ByteSource& src_;
    long long pos_ = 0;
};

// --- header records ----------------------------------------------------------

void readField(StreamReader& r, JProfileHeaderField<QString>& f, int flag)
{
    const QString v = r.getString();
    f.present = flag != 0;
    if (flag != 0)
        f.value = v;
}

void readField(StreamReader& r, JProfileHeaderField<int32_t>& f, int flag)
{
    f.value = r.getInt();
    f.present = flag != 0;
}

void readField(StreamReader& r, JProfileHeaderField<float>& f, int flag)
{
    f.value = r.getFloat();
    f.present = flag != 0;
}

void readFlagged(StreamReader& r, JProfileHeaderField<QString>& f)
{
    const int flag = r.getInt();
    readField(r, f, flag);
}

void readFlagged(StreamReader& r, JProfileHeaderField<int32_t>& f)
{
    const int flag = r.getInt();
    readField(r, f, flag);
}

void readFlagged(StreamReader& r, JProfileHeaderField<float>& f)
{
    const int flag = r.getInt();
    readField(r, f, flag);
}

JProfileHeader readHeader44546(StreamReader& r)
{
    JProfileHeader h;
    h.maker.set(r.getString());
    h.model.set(r.getString());
    h.film.set(r.getString());
    h.iso.set(r.getInt());
    h.multisampling.set(r.getInt());
    r.getInt();  // a shutter speed in a form no longer used
    h.shutterspeed.present = false;
    h.exposurecomp.set(0.0f);
    h.megapixels.set(r.getInt());
    h.quality.set(r.getInt());
    h.sharpness.set(r.getInt());
    h.illuminant.set(r.getInt());
    h.contrast.set(r.getInt());
    h.saturation.set(r.getInt());
    h.temperature.present = false;
    h.colorspace.set(r.getString());
    h.author.set(r.getString());
    r.getString();  // a text no longer used
    h.comment.set(r.getString());
    return h;
}

JProfileHeader readHeader44547(StreamReader& r)
{
    JProfileHeader h;
    readFlagged(r, h.maker);
    readFlagged(r, h.model);
    readFlagged(r, h.film);
    readFlagged(r, h.iso);
    readFlagged(r, h.multisampling);
    readFlagged(r, h.shutterspeed);
    readFlagged(r, h.megapixels);
    readFlagged(r, h.quality);
    readFlagged(r, h.sharpness);
    readFlagged(r, h.illuminant);
    readFlagged(r, h.contrast);
    readFlagged(r, h.saturation);
    readFlagged(r, h.temperature);
    readFlagged(r, h.colorspace);
    readFlagged(r, h.author);
    readFlagged(r, h.comment);
    // This layout has no exposure compensation.
    h.exposurecomp.set(0.0f);
    return h;
}

JProfileHeader readHeader44548(StreamReader& r)
{
    JProfileHeader h;
    const int count = r.getInt();
    for (int i = 0; i < count; ++i) {
        const int index = r.getInt();
        const int tag = r.getInt();
        const int flag = r.getInt();
        // Known fields are read in their own kind whatever the tag says.
        switch (index) {
        case 0: readField(r, h.maker, flag); break;
        case 1: readField(r, h.model, flag); break;
        case 2: readField(r, h.film, flag); break;
        case 3: readField(r, h.iso, flag); break;
        case 4: readField(r, h.multisampling, flag); break;
        case 5: readField(r, h.shutterspeed, flag); break;
        case 6: readField(r, h.exposurecomp, flag); break;
        case 7: readField(r, h.megapixels, flag); break;  // tagged float, stored as an integer
        case 8: readField(r, h.quality, flag); break;
        case 9: readField(r, h.sharpness, flag); break;
        case 10: readField(r, h.illuminant, flag); break;
        case 11: readField(r, h.contrast, flag); break;
        case 12: readField(r, h.saturation, flag); break;
        case 13: readField(r, h.temperature, flag); break;
        case 14: readField(r, h.colorspace, flag); break;
        case 15: readField(r, h.author, flag); break;
        case 16: readField(r, h.comment, flag); break;
        default:
            // A field of a later writer: skip one value by its tag.
            if (tag == TagString)
                r.getString();
            else if (tag == TagInteger)
                r.getInt();
            else if (tag == TagFloat)
                r.getFloat();
            break;
        }
    }
    return h;
}

// --- writer ------------------------------------------------------------------

void writeField(QDataStream& s, int index, int tag, const JProfileHeaderField<QString>& f)
{
    s << index << tag << (f.present ? 1 : 0);
    if (f.present)
        s << f.value;
    else
        s << "";  // the empty C text: a length of 1 and the zero byte
}

void writeField(QDataStream& s, int index, int tag, const JProfileHeaderField<int32_t>& f)
{
    s << index << tag << (f.present ? 1 : 0) << static_cast<int>(f.present ? f.value : 0);
}

void writeField(QDataStream& s, int index, int tag, const JProfileHeaderField<float>& f)
{
    s << index << tag << (f.present ? 1 : 0) << (f.present ? f.value : 0.0f);
}

void writeProfile(QDataStream& s, const JNoiseProfile& p)
{
    const JProfileHeader& h = p.header();
    s << kVersion44548 << kSecondWord;
    const QString text = JHeaderText::write(h);
    s.writeBytes(text.utf8(), static_cast<unsigned int>(text.length()));
    s << kTaggedFieldCount;
    writeField(s, 0, TagString, h.maker);
    writeField(s, 1, TagString, h.model);
    writeField(s, 2, TagString, h.film);
    writeField(s, 3, TagInteger, h.iso);
    writeField(s, 4, TagInteger, h.multisampling);
    writeField(s, 5, TagFloat, h.shutterspeed);
    writeField(s, 6, TagFloat, h.exposurecomp);
    // Tagged as a float, written as an integer: the layout has always been so.
    writeField(s, 7, TagFloat, h.megapixels);
    writeField(s, 8, TagInteger, h.quality);
    writeField(s, 9, TagInteger, h.sharpness);
    writeField(s, 10, TagInteger, h.illuminant);
    writeField(s, 11, TagInteger, h.contrast);
    writeField(s, 12, TagInteger, h.saturation);
    writeField(s, 13, TagFloat, h.temperature);
    writeField(s, 14, TagString, h.colorspace);
    writeField(s, 15, TagString, h.author);
    writeField(s, 16, TagString, h.comment);
    s << p.sampleCount();
    for (int i = 0; i < p.sampleCount(); ++i)
        s << p.getSample(i);
    s << p.settings();
}

// --- readers -----------------------------------------------------------------

void readStreamProfile(JNoiseProfile& p, QDataStream& s, const ByteSource& src)
{
    StreamReader r(s, src);
    p.reset();
    const unsigned int version = r.getUInt();
    r.getInt();  // the second word
    if (version < kVersion44546 || version > kVersion44548)
        throw JEx(QObject::tr("Invalid version or corrupted noise profile"));
    if (version > kVersion44546)
        r.skipBlock();  // the header text, for people only
    if (version == kVersion44546)
        p.setHeader(readHeader44546(r));
    else if (version == kVersion44547)
        p.setHeader(readHeader44547(r));
    else
        p.setHeader(readHeader44548(r));
    const int n = r.getInt();
    r.expectItems(n, kSampleBytes);
    for (int i = 0; i < n; ++i) {
        JNoiseSample sample;
        r.getSample(sample);
        p.addSample(sample);
    }
    s >> p.settings();
    p.buildProfile();
}

[[noreturn]] void notVersion1()
{
    throw JEx(QObject::tr("Not a valid Version 1 profile"));
}

void readVersion1Profile(JNoiseProfile& p, JByteStream& in)
{
    p.setHeader(JProfileHeader());
    std::vector<JNoiseSample> grid(kGridCells);
    for (int k = 0; k < kGridCells; ++k) {
        JNoiseSample& g = grid[k];
        g.ycrcb[0] = static_cast<float>((k >> 6) & 7) * 0.125f + 0.0625f;
        g.ycrcb[1] = static_cast<float>((k >> 3) & 7) * 0.125f + 0.0625f;
        g.ycrcb[2] = static_cast<float>(k & 7) * 0.125f + 0.0625f;
        JPixel px;
        px.fromYCrCb(g.ycrcb[0], g.ycrcb[1], g.ycrcb[2]);
        g.lab.fromPixel(px);
        g.lab.toRGB(g.rgb[0], g.rgb[1], g.rgb[2]);
    }
    std::vector<float> values(kGridCells);
    for (int c = 0; c < 3; ++c) {
        if (in.get32() != kV1Magic)
            notVersion1();
        float ref[3];
        for (float& v : ref)
            v = in.getf32();
        const int m = in.get32();
        // Five levels is all the table holds; a count outside 1..5 cannot be
        // a Version 1 block (and would index outside the table).
        if (m <= 0 || m > kV1MaxWeights)
            notVersion1();
        float weight[kV1MaxWeights];
        for (int i = 0; i < m; ++i)
            weight[i] = in.getf32();
        // The format's rule: every missing weight is half the last one given,
        // the same value for all, not halved again per level.
        for (int i = m; i < kV1MaxWeights; ++i)
            weight[i] = 0.5f * weight[m - 1];
        const int pairs = in.get32();
        for (int i = 0; i < pairs; ++i) {
            in.getf32();
            in.getf32();
        }
        for (int k = 0; k < kGridCells; ++k) {
            values[k] = in.getf32();
            grid[k].noise[c][0] = values[k];
        }
        int nearest = -1;
        float best = 1e38f;
        for (int k = 0; k < kGridCells; ++k) {
            const float dy = grid[k].ycrcb[0] - ref[0];
            const float dcr = grid[k].ycrcb[1] - ref[1];
            const float dcb = grid[k].ycrcb[2] - ref[2];
            const float dist = dy * dy + dcr * dcr + dcb * dcb;
            if (dist < best) {
                best = dist;
                nearest = k;
            }
        }
        // A reference colour that is not a number or lies absurdly far off
        // the grid matches no cell; there is then no scale to read.
        if (nearest < 0)
            notVersion1();
        const float d = grid[nearest].noise[c][0];
        for (int k = 0; k < kGridCells; ++k)
            for (int l = 0; l < JNoiseProfile::kLevels; ++l)
                grid[k].noise[c][l] = values[k] / d * weight[l];
    }
    p.reset();
    for (const JNoiseSample& g : grid)
        p.addSample(g);
    grid.clear();
    p.buildProfile();
}

// Lends the caller's block to a QByteArray for as long as the stream reads it.
class BorrowedBytes {
public:
    BorrowedBytes(const unsigned char* data, int length)
    {
        a_.setRawData(const_cast<char*>(reinterpret_cast<const char*>(data)),
                      length > 0 ? static_cast<unsigned int>(length) : 0);
    }
    ~BorrowedBytes() { a_.resetRawData(); }
    BorrowedBytes(const BorrowedBytes&) = delete;
    BorrowedBytes& operator=(const BorrowedBytes&) = delete;

    const QByteArray& array() const { return a_; }

private:
    QByteArray a_;
};

}  // namespace

void JNoiseProfile::load(const QString& path)
{
    try {
        JFileStream in;
        in.open(path, O_RDONLY);
        in.setByteOrder(JByteStream::LittleEndian);
        readVersion1Profile(*this, in);
        setPath(path);
        return;
    } catch (...) {
        // Not a Version 1 profile: try the stream profile.
    }
    QFile file(path);
    QDataStream s(&file);
    const ByteSource src(path);
    readStreamProfile(*this, s, src);
    setPath(path);
}

void JNoiseProfile::load(const unsigned char* data, int length)
{
    try {
        JMemDevice dev(data, length);
        JByteStream in(&dev);
        in.setByteOrder(JByteStream::LittleEndian);
        readVersion1Profile(*this, in);
        return;
    } catch (...) {
        // Not a Version 1 profile: try the stream profile.
    }
    const BorrowedBytes bytes(data, length);
    QDataStream s(bytes.array(), qtless::IO_ReadOnly);
    const ByteSource src(data, length);
    readStreamProfile(*this, s, src);
}

void JNoiseProfile::save(const QString& path)
{
    {
        QFile file(path);
        QDataStream s(&file);
        writeProfile(s, *this);
        // Pushes the last bytes to the file here, where a failure can still
        // be reported; the stream's destructor would swallow it.
        s.device();
    }
    setPath(path);
}

void JNoiseProfile::save(unsigned char** data, int* length)
{
    QDataStream s(QByteArray(), qtless::IO_WriteOnly);
    writeProfile(s, *this);
    const QByteArray written = s.device()->buffer();
    const unsigned int n = written.size();
    unsigned char* out = new unsigned char[n > 0 ? n : 1];
    if (n > 0)
        std::memcpy(out, written.data(), n);
    *data = out;
    *length = static_cast<int>(n);
}
