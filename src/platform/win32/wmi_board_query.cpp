// The base board query over WMI. Each query initialises COM on the calling thread, creates
// the locator, connects, sets the proxy blanket, runs the query and reads every base board;
// it releases all of it (and gives the apartment back) before it returns.
//
// The "Product" value is converted to UTF-8, the text form of the whole service (the model
// name is looked up again through the wide INI functions, so a code-page conversion would
// not survive the round trip for characters outside ASCII; for ASCII it is the same text).
#include <objbase.h>
#include <wbemidl.h>
#include <windows.h>

#include <string>
#include <utility>

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

// The COM objects of one query, released in reverse order when it ends, and the apartment
// given back on the thread that took it.
class Session {
 public:
  ~Session() {
    release(enumerator);
    release(services);
    release(locator);
    if (owns_com) CoUninitialize();
  }
  bool owns_com = false;
  IWbemLocator* locator = nullptr;
  IWbemServices* services = nullptr;
  IEnumWbemClassObject* enumerator = nullptr;
};

// The next object's "Product" value; false at the end of the objects (or a failed step,
// which ends the enumeration too).
bool next_product(IEnumWbemClassObject* enumerator, std::string& product) {
  IWbemClassObject* object = nullptr;
  ULONG returned = 0;
  const HRESULT hr = enumerator->Next(kInfinite, 1, &object, &returned);
  if (FAILED(hr) || returned == 0 || object == nullptr) {
    release(object);
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

class WmiBoardQuery final : public BoardQuery {
 public:
  explicit WmiBoardQuery(std::string name_space) : name_space_(std::move(name_space)) {}

  BoardProducts base_board_products() override {
    BoardProducts answer;
    auto failed = [&answer](BoardQueryStep step, HRESULT hr) {
      answer.failed_step = step;
      answer.hr = hr;
      return answer;
    };
    Session session;
    HRESULT hr = CoInitialize(nullptr);
    // S_FALSE (already initialised on this thread) is a success that must be balanced too.
    session.owns_com = SUCCEEDED(hr);
    // RPC_E_CHANGED_MODE: the thread is in the multithreaded apartment already (a pool
    // thread that another user of the pool initialised): COM is usable, and WMI works from
    // there. Nothing was initialised here, so nothing is uninitialised either.
    if (FAILED(hr) && hr != RPC_E_CHANGED_MODE) return failed(BoardQueryStep::kInitializeCom, hr);

    hr = CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                          reinterpret_cast<void**>(&session.locator));
    if (FAILED(hr)) return failed(BoardQueryStep::kCreateLocator, hr);

    Bstr resource(name_space_);
    hr = session.locator->ConnectServer(resource.get(), nullptr, nullptr, nullptr, 0, nullptr,
                                        nullptr, &session.services);
    if (FAILED(hr)) return failed(BoardQueryStep::kConnect, hr);

    hr = CoSetProxyBlanket(session.services, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr,
                           RPC_C_AUTHN_LEVEL_CALL, RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
    if (FAILED(hr)) return failed(BoardQueryStep::kSetProxyBlanket, hr);

    Bstr language("WQL");
    Bstr query(kBoardQuery);
    hr = session.services->ExecQuery(language.get(), query.get(),
                                     WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY, nullptr,
                                     &session.enumerator);
    if (FAILED(hr)) return failed(BoardQueryStep::kExecQuery, hr);
    if (session.enumerator != nullptr) {
      std::string product;
      while (next_product(session.enumerator, product)) answer.products.push_back(product);
    }
    return answer;
  }

 private:
  std::string name_space_;
};

}  // namespace

std::unique_ptr<BoardQuery> make_wmi_board_query(const std::string& name_space) {
  return std::make_unique<WmiBoardQuery>(name_space);
}

}  // namespace zaltor::platform
