// The base board query over WMI. A session owns its COM initialisation, the locator, the
// service connection and the last query's enumerator, and releases them when it ends.
//
// The "Product" value is converted to UTF-8, the text form of the whole service (the model
// name is looked up again through the wide INI functions, so a code-page conversion would
// not survive the round trip for characters outside ASCII; for ASCII it is the same text).
#include <objbase.h>
#include <wbemidl.h>
#include <windows.h>

#include "platform/win32/wide_text.h"
#include "platform/win32/win32_hardware.h"

namespace zaltor::platform {
namespace {

// A BSTR for one call.
class Bstr {
 public:
  explicit Bstr(const std::string& utf8) : text_(SysAllocString(win32::wide(utf8).c_str())) {}
  ~Bstr() { SysFreeString(text_); }
  Bstr(const Bstr&) = delete;
  Bstr& operator=(const Bstr&) = delete;
  BSTR get() const { return text_; }

 private:
  BSTR text_;
};

// WBEM_INFINITE as the LONG that Next takes (the enumerator names it 0xFFFFFFFF).
constexpr LONG kInfinite = -1;

template <typename T>
void release(T*& p) {
  if (p != nullptr) p->Release();
  p = nullptr;
}

class WmiBoardSession final : public BoardSession {
 public:
  // `owns_com`: the session's CoInitialize took a reference on this thread's COM (S_OK or
  // S_FALSE) that it gives back when it ends.
  explicit WmiBoardSession(bool owns_com) : thread_(GetCurrentThreadId()), owns_com_(owns_com) {}
  ~WmiBoardSession() override {
    release(enumerator_);
    release(services_);
    release(locator_);
    // COM is initialised per thread: only the thread that initialised it can end it. A
    // session dropped elsewhere leaves that thread's apartment as it is.
    if (owns_com_ && GetCurrentThreadId() == thread_) CoUninitialize();
  }
  WmiBoardSession(const WmiBoardSession&) = delete;
  WmiBoardSession& operator=(const WmiBoardSession&) = delete;

  int32_t create_locator() override {
    release(enumerator_);
    release(services_);
    release(locator_);
    return CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                            reinterpret_cast<void**>(&locator_));
  }

  int32_t connect(const std::string& name_space) override {
    if (locator_ == nullptr) return E_POINTER;
    release(enumerator_);
    release(services_);
    Bstr resource(name_space);
    return locator_->ConnectServer(resource.get(), nullptr, nullptr, nullptr, 0, nullptr, nullptr,
                                   &services_);
  }

  int32_t set_proxy_blanket() override {
    if (services_ == nullptr) return E_POINTER;
    return CoSetProxyBlanket(services_, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr,
                             RPC_C_AUTHN_LEVEL_CALL, RPC_C_IMP_LEVEL_IMPERSONATE, nullptr,
                             EOAC_NONE);
  }

  int32_t exec_query(const std::string& wql) override {
    if (services_ == nullptr) return E_POINTER;
    release(enumerator_);
    Bstr language("WQL");
    Bstr query(wql);
    return services_->ExecQuery(language.get(), query.get(),
                                WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY, nullptr,
                                &enumerator_);
  }

  bool next_product(std::string& product) override {
    if (enumerator_ == nullptr) return false;
    IWbemClassObject* object = nullptr;
    ULONG returned = 0;
    const HRESULT hr = enumerator_->Next(kInfinite, 1, &object, &returned);
    if (FAILED(hr) || returned == 0 || object == nullptr) {
      // The end of the objects (or a failed step): the enumeration is over.
      release(object);
      release(enumerator_);
      return false;
    }
    VARIANT value;
    VariantInit(&value);
    product.clear();
    // An object without a text value (VT_NULL) counts as an empty product name.
    if (SUCCEEDED(object->Get(L"Product", 0, &value, nullptr, nullptr)) && value.vt == VT_BSTR &&
        value.bstrVal != nullptr) {
      product = win32::narrow(value.bstrVal, SysStringLen(value.bstrVal));
    }
    VariantClear(&value);
    object->Release();
    return true;
  }

 private:
  DWORD thread_;
  bool owns_com_;
  IWbemLocator* locator_ = nullptr;
  IWbemServices* services_ = nullptr;
  IEnumWbemClassObject* enumerator_ = nullptr;
};

class WmiBoardQuery final : public BoardQuery {
 public:
  std::unique_ptr<BoardSession> open(int32_t& hr) override {
    hr = CoInitialize(nullptr);
    // S_FALSE (already initialised on this thread) is a success that must be balanced too.
    const bool owns_com = SUCCEEDED(hr);
    if (hr == RPC_E_CHANGED_MODE) {
      // The thread is in the multithreaded apartment already (a pool thread that another
      // user of the pool initialised): COM is usable, and WMI works from there. Nothing
      // was initialised here, so the session must not uninitialise; to the caller this is
      // COM that was already initialised.
      hr = S_FALSE;
    }
    if (FAILED(hr)) return nullptr;
    return std::make_unique<WmiBoardSession>(owns_com);
  }
};

}  // namespace

std::unique_ptr<BoardQuery> make_wmi_board_query() {
  return std::make_unique<WmiBoardQuery>();
}

}  // namespace zaltor::platform
