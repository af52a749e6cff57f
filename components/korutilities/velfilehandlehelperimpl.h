// CVeLFileHandleHelperImpl: asks the Restart Manager, through the operating-system facade, which processes
// hold a file open. Holds only the facade; each query opens and ends its own session, so one instance may
// serve several threads. On Linux the holders are found by scanning /proc, so processes of other users are
// seen only with the privileges to read their descriptors.
#pragma once

#include "ivelwinapiwrapper.h"
#include "velfilehandleinfo.h"

#include <boost/filesystem/path.hpp>

#include <list>
#include <memory>

class CVeLFileHandleHelperImpl
{
public:
    explicit CVeLFileHandleHelperImpl(std::shared_ptr<IVeLWinAPIWrapper> api);
    virtual ~CVeLFileHandleHelperImpl();

    bool GetFileLockingProcesses(const boost::filesystem::path& file,
                                 std::list<VeLFileHandleInfo>& processes) const;

private:
    // Registers the file with the open session and appends the processes that hold it; false (traced) when
    // the session cannot answer.
    bool ListHolders(DWORD session, const std::wstring& name, std::list<VeLFileHandleInfo>& processes) const;

    std::shared_ptr<IVeLWinAPIWrapper> m_api;
};
