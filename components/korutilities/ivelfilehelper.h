// IVeLFileHelper: the operations on one file that CVeLFileHelper offers and CVeLFileHelperImpl carries out.
// Every operation answers true (or a value) for success and false (or 0, or an empty value) for failure,
// after tracing the reason; none throws. The order of the operations is fixed.
#pragma once

#include "velwin32.h"

#include <boost/filesystem/path.hpp>
#include <boost/shared_ptr.hpp>

#include <cstddef>
#include <string>

class IVeLFileHelper
{
public:
    virtual ~IVeLFileHelper() {}
    virtual boost::filesystem::path GetPath() = 0;
    virtual boost::filesystem::path GetDirPath() = 0;
    virtual ULONG GetSize() const = 0;
    virtual bool Exists() const = 0;
    virtual bool Copy(boost::filesystem::path destination) const = 0;
    virtual bool Rename(boost::filesystem::path newPath) = 0;
    virtual bool Create() const = 0;
    virtual bool Remove() const = 0;
    virtual bool Deflate() const = 0;
    virtual bool WriteContent(const unsigned char* content, ULONG length) = 0;
    virtual bool WriteContent(const std::wstring& content) = 0;
    virtual bool ReadContent(boost::shared_ptr<unsigned char>& buffer, ULONG& size) const = 0;
    virtual bool ReadContent(std::wstring& content) const = 0;
    virtual bool WriteUtf8Content(const std::wstring& content) = 0;
    virtual bool ReadUtf8Content(std::wstring& content) const = 0;
    virtual bool IsWriteable() const = 0;
    virtual bool IsRegularFile() const = 0;
    virtual boost::filesystem::path GetFileName() = 0;
    virtual std::wstring GetFileNameWithoutExtension() = 0;
    virtual std::wstring GetFileExtension() = 0;
    virtual std::wstring GetFileExtensionWithoutLeadingDot() = 0;
    virtual void Reset(boost::filesystem::path path, bool flag) = 0;
    virtual std::wstring ToString() = 0;

    // Crash-safe whole-file write.
    virtual bool ReplaceContentAtomically(const unsigned char* content, size_t length) = 0;
};
