// The memory functions that the generated stubs call for the runtime's allocations.
#include <rpc.h>
#include <windows.h>

#include <cstdlib>

extern "C" void* __RPC_USER MIDL_user_allocate(SIZE_T size) {
  return std::malloc(size);
}

extern "C" void __RPC_USER MIDL_user_free(void* p) {
  std::free(p);
}
