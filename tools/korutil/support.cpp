// Helpers shared by the verbs that read and write files: whole-file reads, writes that replace their
// destination only when complete, clean-up of a temporary file on interrupt, and the progress bar.
#include "korutil.h"

#include <velfilebasics.h>
#include <velfilehelper.h>
#include <velwin32.h>

#include <boost/shared_ptr.hpp>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace korutil
{

namespace
{

// The temporary file being written, as the native bytes the C library's remove() takes. A fixed buffer,
// so that the interrupt handler reads it without allocating.
char g_pendingTemporary[4096];
volatile std::sig_atomic_t g_hasPendingTemporary = 0;

extern "C" void RemovePendingAndExit(int signalNumber)
{
    if (g_hasPendingTemporary)
        std::remove(g_pendingTemporary);
    std::_Exit(128 + signalNumber);
}

} // namespace

void SetPendingTemporary(const boost::filesystem::path& temporary)
{
    static std::once_flag installed;
    std::call_once(installed,
                   []
                   {
                       std::signal(SIGINT, RemovePendingAndExit);
                       std::signal(SIGTERM, RemovePendingAndExit);
                   });
    g_hasPendingTemporary = 0;
    const std::string native = temporary.string();
    if (!native.empty() && native.size() < sizeof g_pendingTemporary)
    {
        native.copy(g_pendingTemporary, native.size());
        g_pendingTemporary[native.size()] = '\0';
        g_hasPendingTemporary = 1;
    }
}

boost::filesystem::path TemporaryBeside(const boost::filesystem::path& destination)
{
    const std::string suffix = ".korutil-" + std::to_string(GetCurrentProcessId()) + ".tmp";
    return destination.parent_path() /
           boost::filesystem::path("." + destination.filename().string() + suffix);
}

bool WriteFileAtomically(const boost::filesystem::path& destination, const unsigned char* data,
                         std::size_t size, std::string& reason)
{
    if (size > 0xFFFFFFFFu)
    {
        reason = "output too large";
        return false;
    }
    const boost::filesystem::path temporary = TemporaryBeside(destination);
    CVeLFileHelper file(temporary, false);
    SetPendingTemporary(temporary);
    bool written = file.Create();
    if (!written)
        reason = "cannot create " + PathText(temporary) + DescribeError(LastError());
    else if (size > 0 && !file.WriteContent(data, static_cast<ULONG>(size)))
    {
        reason = "cannot write " + PathText(temporary) + DescribeError(LastError());
        written = false;
    }
    else if (!CVeLFileBasics().Rename(temporary, destination))
    {
        reason = "cannot replace " + PathText(destination);
        written = false;
    }
    if (!written)
        file.Remove();
    SetPendingTemporary(boost::filesystem::path());
    return written;
}

bool ReadWholeFile(const boost::filesystem::path& path, std::vector<unsigned char>& content,
                   std::string& reason)
{
    CVeLFileHelper file(path, false);
    if (!file.Exists())
    {
        reason = PathText(path) + ": no such file";
        return false;
    }
    if (!file.IsRegularFile())
    {
        reason = PathText(path) + ": not a regular file";
        return false;
    }
    boost::shared_ptr<unsigned char> buffer;
    ULONG size = 0;
    if (!file.ReadContent(buffer, size))
    {
        reason = PathText(path) + ": cannot read" + DescribeError(LastError());
        return false;
    }
    content.assign(buffer.get(), buffer.get() + size);
    return true;
}

ProgressBar::ProgressBar(const Invocation& invocation, bool quiet, const std::string& label)
    : m_active(invocation.stderrIsTerminal && !quiet), m_label(label)
{
}

ProgressBar::~ProgressBar()
{
    Finish();
}

void ProgressBar::Update(std::uint64_t done, std::uint64_t total)
{
    if (!m_active)
        return;
    const int width = 30;
    if (total == 0)
    {
        static const char spinner[] = "|/-\\";
        std::fprintf(stderr, "\r%s %c", m_label.c_str(), spinner[m_spin++ % 4]);
    }
    else
    {
        const std::uint64_t percent = done >= total ? 100 : done * 100 / total;
        if (percent == m_lastPercent)
            return;
        m_lastPercent = percent;
        const int filled = static_cast<int>(percent * width / 100);
        std::fprintf(stderr, "\r%s [%.*s%*s] %3d%%", m_label.c_str(), filled,
                     "##############################", width - filled, "", static_cast<int>(percent));
    }
    std::fflush(stderr);
    m_drawn = true;
}

void ProgressBar::Finish()
{
    if (m_drawn)
        std::fprintf(stderr, "\r\033[K");
    m_drawn = false;
}

} // namespace korutil
