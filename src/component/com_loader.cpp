#include "component/com_loader.h"

#include <cstring>
#include <cwchar>

namespace by {

namespace platform = qzextensionkit::platform;

namespace {

// One line on the debugger channel: the text, then the line end in a
// second call.
void DebugLine(const char* text) {
    platform::DebugOutput(text);
    platform::DebugOutput("\n");
}

bool IsTableEnd(const char* name) {
    static const char kEnd[] = "null";
    for (size_t i = 0; i < sizeof kEnd; ++i) {
        char c = name[i];
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
        if (c != kEnd[i]) {
            return false;
        }
    }
    return true;
}

const ModuleFuncEntry kComFuncTable[] = {
    {"DllGetClassObject", 0},
    {"DllCanUnloadNow", 1},
    {"DllRegisterServer", 2},
    {"DllUnregisterServer", 3},
    {"null", 4},
};

template <class F>
F ToFunc(void* address) {
    return reinterpret_cast<F>(address);
}

}  // namespace

IImpModuleBase::IImpModuleBase() {
    std::memset(m_path, 0, sizeof m_path);
}

IImpModuleBase::~IImpModuleBase() {
    if (m_handle != nullptr) {
        platform::CloseLibrary(m_handle);
        m_handle = nullptr;
    }
}

const ModuleFuncEntry* IImpModuleBase::GetFuncTable() {
    return FuncTable();
}

int IImpModuleBase::Load() {
    DebugLine("IImpModuleBase->Load");
    const ModuleFuncEntry* table = FuncTable();
    m_handle = platform::OpenLibrary(m_path);
    if (m_handle == nullptr) {
        return -1;
    }
    for (const ModuleFuncEntry* entry = table; !IsTableEnd(entry->name); ++entry) {
        void* address = platform::FindExport(m_handle, entry->name);
        setfuncaddress(entry->index, address);
        // The library stays open: the loader keeps it until it is destroyed.
        if (address == nullptr && Exception(m_handle, entry->name)) {
            return -1;
        }
    }
    return 1;
}

void IImpModuleBase::Free() {
    if (m_handle != nullptr) {
        platform::CloseLibrary(m_handle);
        m_handle = nullptr;
    }
}

bool IImpModuleBase::IsLoaded() {
    return m_handle != nullptr;
}

bool IImpModuleBase::Exception(platform::LibraryHandle, const char*) {
    DebugLine("IImpModuleBase->Exception");
    return true;
}

CComLoader::CComLoader() = default;

CComLoader::~CComLoader() {
    // Objects first, library last.
    if (m_moduleObject != nullptr) {
        m_moduleObject->Release();
        m_moduleObject = nullptr;
    }
    Free();
    if (m_handle != nullptr) {
        platform::CloseLibrary(m_handle);
        m_handle = nullptr;
    }
}

const ModuleFuncEntry* CComLoader::FuncTable() {
    return kComFuncTable;
}

int CComLoader::setfuncaddress(int index, void* address) {
    DebugLine("CComLoader->setfuncaddress");
    switch (index) {
        case 0:
            DllGetClassObject = ToFunc<DllGetClassObjectFunc>(address);
            break;
        case 1:
            DllCanUnloadNow = ToFunc<DllCanUnloadNowFunc>(address);
            break;
        case 2:
            DllRegisterServer = ToFunc<DllRegisterServerFunc>(address);
            break;
        case 3:
            DllUnregisterServer = ToFunc<DllUnregisterServerFunc>(address);
            break;
        default:
            break;
    }
    return 1;
}

void CComLoader::FreeCom() {
    if (m_moduleObject != nullptr) {
        m_moduleObject->Release();
        m_moduleObject = nullptr;
    }
    Free();
}

bool CComLoader::LoadCom(const wchar_t* path) {
    DebugLine("CComLoader->LoadCom");
    // The path field is fixed in size; a longer path is refused rather than
    // cut short, which could open a different file.
    if (path == nullptr) {
        DebugLine("CComLoader->LoadCom path is null");
        return false;
    }
    size_t length = std::wcslen(path);
    if (length >= static_cast<size_t>(kMaxModulePath)) {
        DebugLine("CComLoader->LoadCom path too long");
        return false;
    }
    std::memset(m_path, 0, sizeof m_path);
    std::wmemcpy(m_path, path, length + 1);

    if (Load() == -1) {
        DebugLine("CComLoader->Load fuc fail");
        std::memset(m_path, 0, sizeof m_path);
        return false;
    }
    if (DllGetClassObject == nullptr) {
        DebugLine("CComLoader->DllGetClassObject error");
        return false;
    }
    // Only the pointer tells: the status of this call is not looked at.
    DllGetClassObject(CLSID_ModuleObject, IID_IOFClassFactory,
                      reinterpret_cast<void**>(&m_moduleObject));
    if (m_moduleObject != nullptr) {
        return true;
    }
    FreeCom();
    return false;
}

Result CComLoader::CreateInstance(const GUID& classId, IBaseUnknown* outer, void* reserved,
                                  const GUID& iid, void** out) {
    if (!IsLoaded()) {
        return kFail;
    }
    // A loader whose Load failed part way is still open; the getter may be
    // missing then.
    if (DllGetClassObject == nullptr) {
        return kFail;
    }
    IBaseUnknown* factory = nullptr;
    Result status =
        DllGetClassObject(classId, IID_IClassFactory, reinterpret_cast<void**>(&factory));
    if (status < 0 || factory == nullptr) {
        if (factory != nullptr) {
            factory->Release();
        }
        return kFail;
    }
    IOFClassFactory* extended = nullptr;
    if (factory->QueryInterface(IID_IOFClassFactory, reinterpret_cast<void**>(&extended)) < 0) {
        extended = nullptr;
    }
    if (extended == nullptr) {
        factory->Release();
        return kFail;
    }
    DebugLine("pOFClassFactory->CreateInstance");
    status = extended->CreateInstance(outer, reserved, iid, out);
    extended->Release();
    factory->Release();
    return status;
}

}  // namespace by
