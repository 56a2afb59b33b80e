// trust-authority FILE: lets this user trust the certificate authority in the file (DER), as the tests'
// server needs it. For the prefix of a test session; on Windows the system asks the user first.
#include <windows.h>

#include <wincrypt.h>

#include <cstdio>

#include "broker_fixture_win.h"

int wmain(int count, wchar_t** arguments);  // declared by no header

int wmain(int count, wchar_t** arguments) {
    if (count != 2) {
        std::fputs("usage: trust-authority FILE\n", stderr);
        return 2;
    }
    const std::string der = vextra::readFile(arguments[1]);
    const HCERTSTORE store =
        CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, L"Root");
    const bool added =
        store != nullptr && CertAddEncodedCertificateToStore(
                                store, X509_ASN_ENCODING, reinterpret_cast<const BYTE*>(der.data()),
                                static_cast<DWORD>(der.size()), CERT_STORE_ADD_REPLACE_EXISTING, nullptr);
    const DWORD error = GetLastError();
    if (store != nullptr)
        CertCloseStore(store, 0);
    if (!added)
        std::fprintf(stderr, "trust-authority: error %lu\n", error);
    return added ? 0 : 1;
}
