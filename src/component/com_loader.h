#pragma once

// One component library on disk: opened once, its four exports resolved, its
// module object held, objects made through its class factories. Loaders are
// kept for the life of the process (in the bundle manager's pool), so a
// library is never closed while objects made from it may still be alive.
//
// Diagnostics go to the debugger channel only (platform::DebugOutput); the
// log lines about a failed load belong to the callers.

#include "component/guid.h"
#include "component/unknown.h"
#include "platform/export.h"
#include "platform/platform.h"

namespace by {

// Longest library path the loader takes, terminator included.
constexpr int kMaxModulePath = 260;

// One entry of a module's table of exports. The table ends with an entry
// named "null" (compared without case).
struct ModuleFuncEntry {
    const char* name;
    int index;
};

// A loaded module: the path it came from and the handle of the open library.
class QZEKIT_EXPORT IImpModuleBase {
public:
    IImpModuleBase();

    virtual const ModuleFuncEntry* GetFuncTable();
    virtual ~IImpModuleBase();
    // Opens the library and resolves every entry of the table. 1 on success,
    // -1 when the library can't be opened or an export is missing; in the
    // second case the library stays open.
    virtual int Load();
    // Closes the library if open.
    virtual void Free();
    virtual bool IsLoaded();
    // How a missing export is treated: true makes it fatal, and it always is.
    virtual bool Exception(qzextensionkit::platform::LibraryHandle handle, const char* name);
    virtual const ModuleFuncEntry* FuncTable() = 0;
    virtual int setfuncaddress(int index, void* address) = 0;

    IImpModuleBase(const IImpModuleBase&) = delete;
    IImpModuleBase& operator=(const IImpModuleBase&) = delete;

protected:
    wchar_t m_path[kMaxModulePath];
    qzextensionkit::platform::LibraryHandle m_handle = nullptr;
};

class QZEKIT_EXPORT CComLoader : public IImpModuleBase {
public:
    // The exports every component library must have. Only DllGetClassObject
    // is ever called; the other three must exist all the same.
    using DllGetClassObjectFunc = Result (*)(const GUID& classId, const GUID& iid, void** out);
    using DllCanUnloadNowFunc = Result (*)();
    using DllRegisterServerFunc = Result (*)();
    using DllUnregisterServerFunc = Result (*)();

    CComLoader();
    // Releases the module object, then closes the library.
    ~CComLoader() override;

    const ModuleFuncEntry* FuncTable() override;
    // Stores an export's address under indexes 0 to 3; other indexes are
    // ignored. Always returns 1.
    int setfuncaddress(int index, void* address) override;
    // Releases the module object, then closes the library.
    virtual void FreeCom();

    // Opens the library at `path` (at most kMaxModulePath - 1 characters),
    // resolves its exports and gets its module object. Only a library that
    // yields no module object is closed again on failure.
    bool LoadCom(const wchar_t* path);
    // Makes an object of `classId` through the library's class factory and
    // asks it for `iid`. E_FAIL when the library is not open or has no usable
    // factory for the class; otherwise the factory's own status.
    Result CreateInstance(const GUID& classId, IBaseUnknown* outer, void* reserved, const GUID& iid,
                          void** out);

    // What the loader resolved, for the bundle manager and tests.
    const wchar_t* Path() const { return m_path; }
    IOFClassFactory* ModuleObject() const { return m_moduleObject; }

protected:
    DllGetClassObjectFunc DllGetClassObject = nullptr;
    DllCanUnloadNowFunc DllCanUnloadNow = nullptr;
    DllRegisterServerFunc DllRegisterServer = nullptr;
    DllUnregisterServerFunc DllUnregisterServer = nullptr;
    // Owns one reference, released by FreeCom.
    IOFClassFactory* m_moduleObject = nullptr;
};

}  // namespace by
