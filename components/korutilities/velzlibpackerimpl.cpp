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

} // namespace

CVeLZlibPackerImpl::CVeLZlibPackerImpl(std::shared_ptr<IVeLWinAPIWrapper> api) : m_api(std::move(api)) {}

CVeLZlibPackerImpl::~CVeLZlibPackerImpl() = default;

bool CVeLZlibPackerImpl::Compress(const boost::filesystem::path& source,
                                  const boost::filesystem::path& target) const
{
    return Compress(source, target, 6);
}

bool CVeLZlibPackerImpl::Compress(const boost::filesystem::path& source,
                                  const boost::filesystem::path& target, int level) const
{
    if (!m_api)
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return false;
    }
    if (level < 0 || level > 9 || source.empty() || target.empty())
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return false;
    }
    CVeLFileStream input(m_api);
    if (!input.OpenRead(source))
    {
        VEL_TRACE(VEL_ERR, "Opening %s for compression failed (error code: %d)!", Utf8(source).c_str(),
                  input.LastError());
        return false;
    }
    CVeLFileStream output(m_api);
    if (!output.OpenPartial(target))
    {
        VEL_TRACE(VEL_ERR, "Creating %s failed (error code: %d)!", Utf8(target).c_str(), output.LastError());
        return false;
    }

    // The member header: deflate, no name, no time (so equal input gives equal output), unknown system.
    static const unsigned char header[10] = {0x1F, 0x8B, 0x08, 0x00, 0, 0, 0, 0, 0x00, 0xFF};
    bool writeOk = output.Write(header, sizeof header);
    bool readOk = true;
    bool deflateOk = true;
    uLong crc = crc32(0L, Z_NULL, 0);
    unsigned long long total = 0;

    const unsigned threads = std::max(1u, std::min(std::thread::hardware_concurrency(), 16u));
    std::deque<std::pair<std::unique_ptr<Block>, std::future<void>>> pending;
    auto writeOldest = [&]()
    {
        pending.front().second.get();
        Block& block = *pending.front().first;
        deflateOk = deflateOk && block.ok;
        if (deflateOk && writeOk)
        {
            writeOk = output.Write(block.output.data(), block.output.size());
            crc = crc32_combine(crc, block.crc, static_cast<z_off_t>(block.input->size()));
            total += block.input->size();
        }
        pending.pop_front();
    };

    std::shared_ptr<std::vector<unsigned char>> previous;
    while (readOk && writeOk && deflateOk)
    {
        auto data = std::make_shared<std::vector<unsigned char>>(kBlockSize);
        std::size_t filled = 0;
        while (filled < kBlockSize)
        {
            std::size_t got = 0;
            if (!input.Read(data->data() + filled, kBlockSize - filled, got))
            {
                readOk = false;
                break;
            }
            if (got == 0)
                break;
            filled += got;
        }
        if (!readOk || filled == 0)
            break;
        data->resize(filled);
        auto block = std::make_unique<Block>();
        block->input = data;
        block->previous = previous;
        previous = data;
        Block* raw = block.get();
        pending.emplace_back(std::move(block),
                             std::async(std::launch::async, [raw, level] { DeflateBlock(*raw, level); }));
        if (pending.size() >= 2 * threads)
            writeOldest();
        if (filled < kBlockSize)
            break;
    }
    while (!pending.empty())
        writeOldest();

    if (!readOk)
    {
        VEL_TRACE(VEL_ERR, "Reading %s for compression failed (error code: %d)!", Utf8(source).c_str(),
                  input.LastError());
        return false;
    }
    if (!deflateOk)
    {
        VEL_TRACE(VEL_ERR, "Compressing %s failed!", Utf8(source).c_str());
        return false;
    }
    // An empty final block with fixed codes ends the deflate stream; then CRC-32 and length modulo 2^32.
    unsigned char trailer[10] = {0x03, 0x00};
    PutLittleEndian32(trailer + 2, crc);
    PutLittleEndian32(trailer + 6, static_cast<uLong>(total & 0xFFFFFFFFu));
    writeOk = writeOk && output.Write(trailer, sizeof trailer);
    if (!writeOk || !output.Commit())
    {
        VEL_TRACE(VEL_ERR, "Writing %s failed (error code: %d)!", Utf8(target).c_str(), output.LastError());
        return false;
    }
    return true;
}

bool CVeLZlibPackerImpl::Expand(const boost::filesystem::path& source,
                                const boost::filesystem::path& target) const
{
    if (!m_api)
    {
        VEL_TRACE(VEL_ERR, "Invalid initialization");
        return false;
    }
    if (source.empty() || target.empty())
    {
        VEL_TRACE(VEL_ERR, "Invalid parameter");
        return false;
    }
    CVeLFileStream input(m_api);
    if (!input.OpenRead(source))
    {
        VEL_TRACE(VEL_ERR, "Opening %s for expansion failed (error code: %d)!", Utf8(source).c_str(),
                  input.LastError());
        return false;
    }
    CVeLFileStream output(m_api);
    if (!output.OpenPartial(target))
    {
        VEL_TRACE(VEL_ERR, "Creating %s failed (error code: %d)!", Utf8(target).c_str(), output.LastError());
        return false;
    }

    z_stream stream;
    std::memset(&stream, 0, sizeof stream);
    // 16 + window bits: a gzip member; zlib checks the member's CRC-32 and length itself.
    if (inflateInit2(&stream, 16 + MAX_WBITS) != Z_OK)
    {
        VEL_TRACE(VEL_ERR, "Out of memory!");
        return false;
    }
    std::vector<unsigned char> in(kReadSize);
    std::vector<unsigned char> out(4 * kReadSize);
    bool inMember = false;  // a member has begun and not yet ended
    bool anyMember = false; // at least one member was read
    const char* problem = nullptr;
    for (bool end = false; !end && problem == nullptr;)
    {
        std::size_t got = 0;
        if (!input.Read(in.data(), in.size(), got))
        {
            VEL_TRACE(VEL_ERR, "Reading %s for expansion failed (error code: %d)!", Utf8(source).c_str(),
                      input.LastError());
            inflateEnd(&stream);
            return false;
        }
        end = got == 0;
        stream.next_in = in.data();
        stream.avail_in = static_cast<uInt>(got);
        while (stream.avail_in > 0 && problem == nullptr)
        {
            if (!inMember && anyMember && stream.next_in[0] != 0x1F)
            {
                problem = "trailing data after the last member";
                break;
            }
            inMember = true;
            stream.next_out = out.data();
            stream.avail_out = static_cast<uInt>(out.size());
            const int result = inflate(&stream, Z_NO_FLUSH);
            const std::size_t produced = out.size() - stream.avail_out;
            if (produced > 0 && !output.Write(out.data(), produced))
            {
                VEL_TRACE(VEL_ERR, "Writing %s failed (error code: %d)!", Utf8(target).c_str(),
                          output.LastError());
                inflateEnd(&stream);
                return false;
            }
            if (result == Z_STREAM_END)
            {
                inMember = false;
                anyMember = true;
                inflateReset(&stream);
            }
            else if (result == Z_DATA_ERROR)
                problem = stream.msg != nullptr ? stream.msg : "corrupt data";
            else if (result == Z_MEM_ERROR)
                problem = "out of memory";
            else if (result != Z_OK && result != Z_BUF_ERROR)
                problem = "corrupt data";
        }
    }
    inflateEnd(&stream);
    if (problem == nullptr && (inMember || !anyMember))
        problem = "unexpected end of file";
    if (problem != nullptr)
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
