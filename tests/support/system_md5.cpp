#include "support/system_md5.hpp"

#include <windows.h>

#include <wincrypt.h>

#include <stdexcept>

namespace tallow::test {
namespace {

HCRYPTPROV provider() {
  static const HCRYPTPROV handle = [] {
    HCRYPTPROV made = 0;
    if (!CryptAcquireContextA(&made, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT)) {
      throw std::runtime_error("the system has no MD5: " + std::to_string(GetLastError()));
    }
    return made;
  }();
  return handle;
}

}  // namespace

std::string systemMd5(std::string_view data) {
  HCRYPTHASH hash = 0;
  std::string digest(16, '\0');
  auto size = static_cast<DWORD>(digest.size());
  if (!CryptCreateHash(provider(), CALG_MD5, 0, 0, &hash)) throw std::runtime_error("no MD5 hash");
  const bool done =
      CryptHashData(hash, reinterpret_cast<const BYTE*>(data.data()),
                    static_cast<DWORD>(data.size()), 0) &&
      CryptGetHashParam(hash, HP_HASHVAL, reinterpret_cast<BYTE*>(digest.data()), &size, 0);
  CryptDestroyHash(hash);
  if (!done) throw std::runtime_error("MD5 failed: " + std::to_string(GetLastError()));
  return digest;
}

}  // namespace tallow::test
