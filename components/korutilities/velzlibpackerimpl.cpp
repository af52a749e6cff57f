#include "velzlibpackerimpl.h"
#include "korutilitesbtracedef.h"
#include "velfilestream.h"
#include "velpathconverter.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <future>
#include <thread>
#include <vector>

namespace
{

constexpr std::size_t kBlockSize = 1u << 20;
constexpr std::size_t kDictionarySize = 32768; // deflate's window
constexpr std::size_t kReadSize = 1u << 20;

// One block of input on its way through a compressing thread.
struct Block
{
    std::shared_ptr<std::vector<unsigned char>> input;
    std::shared_ptr<std::vector<unsigned char>> previous; // the block before, for the dictionary; may be null
    std::vector<unsigned char> output;                    // raw deflate data ending in a sync flush
    uLong crc = 0;
    bool ok = false;
};

// Deflates one block; runs on a thread of its own.
void DeflateBlock(Block& block, int level)
{
    z_stream stream;
    std::memset(&stream, 0, sizeof stream);
    if (deflateInit2(&stream, level, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        return;
    if (block.previous && !block.previous->empty())
    {
        const std::size_t size = std::min(block.previous->size(), kDictionarySize);
        deflateSetDictionary(&stream, block.previous->data() + block.previous->size() - size,
                             static_cast<uInt>(size));
    }
    const std::vector<unsigned char>& input = *block.input;
    // deflateBound covers the data; the sync flush adds an empty stored block of at most 10 bytes.
    block.output.resize(deflateBound(&stream, static_cast<uLong>(input.size())) + 16);
    stream.next_in = const_cast<Bytef*>(input.data());
    stream.avail_in = static_cast<uInt>(input.size());
    stream.next_out = block.output.data();
    stream.avail_out = static_cast<uInt>(block.output.size());
    const int result = deflate(&stream, Z_SYNC_FLUSH);
    block.ok = result == Z_OK && stream.avail_in == 0 && stream.avail_out > 0;
    block.output.resize(block.output.size() - stream.avail_out);
    deflateEnd(&stream);
    block.crc = crc32(0L, input.data(), static_cast<uInt>(input.size()));
    block.previous.reset(); // the dictionary is no longer needed
}

void PutLittleEndian32(unsigned char* at, uLong value)
{
    for (int i = 0; i < 4; ++i)
        at[i] = static_cast<unsigned char>((value >> (8 * i)) & 0xFF);
}

std::string Utf8(const boost::filesystem::path& path)
{
    return CVeLPathConverter::ToUtf8(path);
}

// Reads until the block is full or the file ends; false when a read fails.
bool ReadBlock(CVeLFileStream& input, std::vector<unsigned char>& data)
{
    std::size_t filled = 0;
    while (filled < data.size())
    {
        std::size_t got = 0;
        if (!input.Read(data.data() + filled, data.size() - filled, got))
            return false;
        if (got == 0)
            break;
        filled += got;
    }
    data.resize(filled);
    return true;
}

// Deflates blocks on threads of their own, at most twice as many in flight as there are processors, and
// writes their output to the stream in input order, combining the member's CRC-32 and length as it goes.
class ParallelDeflater
{
public:
    ParallelDeflater(CVeLFileStream& output, int level) : m_output(output), m_level(level) {}
    ~ParallelDeflater() { Drain(); }

    bool Ok() const { return m_writeOk && m_deflateOk; }
    bool WriteOk() const { return m_writeOk; }
    bool DeflateOk() const { return m_deflateOk; }
    uLong Crc() const { return m_crc; }
    unsigned long long Total() const { return m_total; }

    void Submit(std::shared_ptr<std::vector<unsigned char>> data)
    {
        auto block = std::make_unique<Block>();
        block->input = data;
        block->previous = std::move(m_previous);
        m_previous = std::move(data);
        Block* raw = block.get();
        const int level = m_level;
        m_pending.emplace_back(std::move(block),
                               std::async(std::launch::async, [raw, level] { DeflateBlock(*raw, level); }));
        if (m_pending.size() >= 2 * m_threads)
            WriteOldest();
    }
    void Drain()
    {
        while (!m_pending.empty())
            WriteOldest();
    }
    void Write(const unsigned char* data, std::size_t size)
    {
        m_writeOk = m_writeOk && m_output.Write(data, size);
    }

private:
    void WriteOldest()
    {
        m_pending.front().second.get();
        Block& block = *m_pending.front().first;
        m_deflateOk = m_deflateOk && block.ok;
        if (m_deflateOk && m_writeOk)
        {
            m_writeOk = m_output.Write(block.output.data(), block.output.size());
            m_crc = crc32_combine(m_crc, block.crc, static_cast<z_off_t>(block.input->size()));
            m_total += block.input->size();
        }
        m_pending.pop_front();
    }

    CVeLFileStream& m_output;
    const int m_level;
    const unsigned m_threads = std::max(1u, std::min(std::thread::hardware_concurrency(), 16u));
    std::deque<std::pair<std::unique_ptr<Block>, std::future<void>>> m_pending;
    std::shared_ptr<std::vector<unsigned char>> m_previous;
    bool m_writeOk = true;
    bool m_deflateOk = true;
    uLong m_crc = crc32(0L, Z_NULL, 0);
    unsigned long long m_total = 0;
};

// Inflates the gzip members of a file one chunk at a time and writes what they hold to the stream.
// Concatenated members are read one after another; anything else after the last member is a problem.
class MemberInflater
{
public:
    MemberInflater() : m_in(kReadSize), m_out(4 * kReadSize) { std::memset(&m_stream, 0, sizeof m_stream); }
    ~MemberInflater()
    {
        if (m_ready)
            inflateEnd(&m_stream);
    }

    // 16 + window bits: a gzip member; zlib checks the member's CRC-32 and length itself.
    bool Init() { return m_ready = inflateInit2(&m_stream, 16 + MAX_WBITS) == Z_OK; }
    std::vector<unsigned char>& InputBuffer() { return m_in; }
    const char* Problem() const { return m_problem; }

    // Inflates the got bytes of the input buffer; false only when writing the output fails.
    bool Feed(std::size_t got, CVeLFileStream& output)
    {
        m_stream.next_in = m_in.data();
        m_stream.avail_in = static_cast<uInt>(got);
        while (m_stream.avail_in > 0 && m_problem == nullptr)
        {
            if (!m_inMember && m_anyMember && m_stream.next_in[0] != 0x1F)
            {
                m_problem = "trailing data after the last member";
                break;
            }
            m_inMember = true;
            m_stream.next_out = m_out.data();
            m_stream.avail_out = static_cast<uInt>(m_out.size());
            const int result = inflate(&m_stream, Z_NO_FLUSH);
            const std::size_t produced = m_out.size() - m_stream.avail_out;
            if (produced > 0 && !output.Write(m_out.data(), produced))
                return false;
            NoteResult(result);
        }
        return true;
    }

    // At the end of the input: a member left open, or none at all, is a problem too.
    const char* Finish()
    {
        if (m_problem == nullptr && (m_inMember || !m_anyMember))
            m_problem = "unexpected end of file";
        return m_problem;
    }

private:
    void NoteResult(int result)
    {
        if (result == Z_STREAM_END)
        {
            m_inMember = false;
            m_anyMember = true;
            inflateReset(&m_stream);
        }
        else if (result == Z_DATA_ERROR)
            m_problem = m_stream.msg != nullptr ? m_stream.msg : "corrupt data";
        else if (result == Z_MEM_ERROR)
            m_problem = "out of memory";
        else if (result != Z_OK && result != Z_BUF_ERROR)
            m_problem = "corrupt data";
    }

    z_stream m_stream;
    bool m_ready = false;
    std::vector<unsigned char> m_in;
    std::vector<unsigned char> m_out;
    bool m_inMember = false;  // a member has begun and not yet ended
    bool m_anyMember = false; // at least one member was read
    const char* m_problem = nullptr;
};

} // namespace

CVeLZlibPackerImpl::CVeLZlibPackerImpl(std::shared_ptr<IVeLWinAPIWrapper> api) : m_api(std::move(api)) {}

CVeLZlibPackerImpl::~CVeLZlibPackerImpl() = default;

bool CVeLZlibPackerImpl::Compress(const boost::filesystem::path& source,
                                  const boost::filesystem::path& target) const
{
    return Compress(source, target, 6);
}

bool CVeLZlibPackerImpl::CheckUsable(bool validArguments) const
{
    if (!m_api)
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return false;
    }
    if (!validArguments)
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return false;
    }
    return true;
}

bool CVeLZlibPackerImpl::OpenStreams(const boost::filesystem::path& source,
                                     const boost::filesystem::path& target, bool compress,
                                     CVeLFileStream& input, CVeLFileStream& output) const
{
    if (!input.OpenRead(source))
    {
        if (compress)
            VEL_TRACE(VEL_ERR, "Opening %s for compression failed (error code: %d)!", Utf8(source).c_str(),
                      input.LastError());
        else
            VEL_TRACE(VEL_ERR, "Opening %s for expansion failed (error code: %d)!", Utf8(source).c_str(),
                      input.LastError());
        return false;
    }
    if (!output.OpenPartial(target))
    {
        VEL_TRACE(VEL_ERR, "Creating %s failed (error code: %d)!", Utf8(target).c_str(), output.LastError());
        return false;
    }
    return true;
}

bool CVeLZlibPackerImpl::Compress(const boost::filesystem::path& source,
                                  const boost::filesystem::path& target, int level) const
{
    if (!CheckUsable(level >= 0 && level <= 9 && !source.empty() && !target.empty()))
        return false;
    CVeLFileStream input(m_api);
    CVeLFileStream output(m_api);
    if (!OpenStreams(source, target, true, input, output))
        return false;
    // The member header: deflate, no name, no time (so equal input gives equal output), unknown system.
    static const unsigned char header[10] = {0x1F, 0x8B, 0x08, 0x00, 0, 0, 0, 0, 0x00, 0xFF};
    ParallelDeflater deflater(output, level);
    deflater.Write(header, sizeof header);
    bool readOk = true;
    while (deflater.Ok())
    {
        auto data = std::make_shared<std::vector<unsigned char>>(kBlockSize);
        readOk = ReadBlock(input, *data);
        if (!readOk || data->empty())
            break;
        const bool last = data->size() < kBlockSize;
        deflater.Submit(std::move(data));
        if (last)
            break;
    }
    deflater.Drain();
    if (!readOk)
    {
        VEL_TRACE(VEL_ERR, "Reading %s for compression failed (error code: %d)!", Utf8(source).c_str(),
                  input.LastError());
        return false;
    }
    if (!deflater.DeflateOk())
    {
        VEL_TRACE(VEL_ERR, "Compressing %s failed!", Utf8(source).c_str());
        return false;
    }
    // An empty final block with fixed codes ends the deflate stream; then CRC-32 and length modulo 2^32.
    unsigned char trailer[10] = {0x03, 0x00};
    PutLittleEndian32(trailer + 2, deflater.Crc());
    PutLittleEndian32(trailer + 6, static_cast<uLong>(deflater.Total() & 0xFFFFFFFFu));
    deflater.Write(trailer, sizeof trailer);
    if (!deflater.WriteOk() || !output.Commit())
    {
        VEL_TRACE(VEL_ERR, "Writing %s failed (error code: %d)!", Utf8(target).c_str(), output.LastError());
        return false;
    }
    return true;
}

bool CVeLZlibPackerImpl::Expand(const boost::filesystem::path& source,
                                const boost::filesystem::path& target) const
{
    if (!CheckUsable(!source.empty() && !target.empty()))
        return false;
    CVeLFileStream input(m_api);
    CVeLFileStream output(m_api);
    if (!OpenStreams(source, target, false, input, output))
        return false;
    MemberInflater inflater;
    if (!inflater.Init())
    {
        VEL_TRACE(VEL_ERR, "Out of memory!");
        return false;
    }
    for (bool end = false; !end && inflater.Problem() == nullptr;)
    {
        std::size_t got = 0;
        if (!input.Read(inflater.InputBuffer().data(), inflater.InputBuffer().size(), got))
        {
            VEL_TRACE(VEL_ERR, "Reading %s for expansion failed (error code: %d)!", Utf8(source).c_str(),
                      input.LastError());
            return false;
        }
        end = got == 0;
        if (!inflater.Feed(got, output))
        {
            VEL_TRACE(VEL_ERR, "Writing %s failed (error code: %d)!", Utf8(target).c_str(),
                      output.LastError());
            return false;
        }
    }
    if (const char* problem = inflater.Finish())
    {
        VEL_TRACE(VEL_ERR, "Expanding %s failed: %s!", Utf8(source).c_str(), problem);
        return false;
    }
    if (!output.Commit())
    {
        VEL_TRACE(VEL_ERR, "Writing %s failed (error code: %d)!", Utf8(target).c_str(), output.LastError());
        return false;
    }
    return true;
}
