#include "signer/signer_win.h"

#include <windows.h>

#include <bcrypt.h>

#include "base/sha256.h"
#include "base/text.h"
#include "base/unique_win.h"
#include "update/channel.h"
#include "update/installer_win.h"
#include "update/json_reader.h"
#include "update/signature.h"
#include "update/update_check.h"

namespace vextra {
namespace {

constexpr std::size_t kMaxKeyFileBytes = 4096;
constexpr std::size_t kScalarBytes = 32;

// BCRYPT_ECCPRIVATE_BLOB. Wiped when it ends.
struct PrivateKeyBlob {
    ULONG magic = BCRYPT_ECDSA_PRIVATE_P256_MAGIC;  // "ECS2"
    ULONG coordinateBytes = kScalarBytes;
    EcPoint point{};
    std::array<std::byte, kScalarBytes> scalar{};

    PrivateKeyBlob() = default;
    PrivateKeyBlob(const PrivateKeyBlob&) = delete;
    PrivateKeyBlob& operator=(const PrivateKeyBlob&) = delete;
    ~PrivateKeyBlob() { wipeMemory(scalar.data(), scalar.size()); }
    PUCHAR bytes() { return reinterpret_cast<PUCHAR>(this); }
};
static_assert(offsetof(PrivateKeyBlob, scalar) == 72 && sizeof(PrivateKeyBlob) == 104);

UniqueCryptoProvider openEcdsa() {
    UniqueCryptoProvider provider;
    if (BCryptOpenAlgorithmProvider(provider.put(), BCRYPT_ECDSA_P256_ALGORITHM, nullptr, 0) < 0)
        return {};
    return provider;
}

// A new file with these bytes; nothing is overwritten.
bool writeNewFile(const std::wstring& path, std::string_view bytes) {
    const UniqueFile file(
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    return file && WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
           written == bytes.size() && FlushFileBuffers(file.get());
}

UniqueFile openForReading(const std::wstring& path) {
    return UniqueFile(
        CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
}

std::optional<SecretUtf8> readSmallFile(const std::wstring& path, std::size_t maxBytes) {
    const UniqueFile file = openForReading(path);
    SecretBytes bytes(maxBytes + 1);
    DWORD taken = 0;
    if (!file || !ReadFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &taken, nullptr) ||
        taken > maxBytes)
        return std::nullopt;
    return SecretUtf8({reinterpret_cast<const char*>(bytes.data()), taken});
}

// The files of one release on their way to the server. What is not committed is taken back.
class ReleaseFiles {
public:
    ReleaseFiles(const std::wstring& outFolder, const std::wstring& version)
        : channelFolder_(outFolder + L"\\" + widenedAscii(kChannelFolder)),
          folder_(channelFolder_ + L"\\" + version) {}
    ReleaseFiles(const ReleaseFiles&) = delete;
    ReleaseFiles& operator=(const ReleaseFiles&) = delete;
    ~ReleaseFiles() {
        if (!begun_ || committed_)
            return;
        for (const std::wstring& path : {newManifest(), signature(), installer()})
            DeleteFileW(path.c_str());
        RemoveDirectoryW(folder_.c_str());
    }

    // False when the version was published before.
    bool begin() {
        CreateDirectoryW(channelFolder_.c_str(), nullptr);
        begun_ = CreateDirectoryW(folder_.c_str(), nullptr) != FALSE;
        return begun_;
    }
    bool commit() {
        committed_ = MoveFileExW(newManifest().c_str(), manifest().c_str(),
                                 MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != FALSE;
        return committed_;
    }

    std::wstring installer() const { return folder_ + L"\\" + widenedAscii(kInstallerFileName); }
    std::wstring signature() const { return installer() + widenedAscii(kSignatureSuffix); }
    std::wstring manifest() const { return channelFolder_ + L"\\" + widenedAscii(kManifestFileName); }
    std::wstring newManifest() const { return manifest() + L".new"; }

private:
    const std::wstring channelFolder_;
    const std::wstring folder_;
    bool begun_ = false;
    bool committed_ = false;
};

// The manifest of the installer that was copied into its place.
std::optional<UpdateManifest> describeInstaller(const ReleaseFiles& files, const std::string& version,
                                                const UpdateChannelIdentity& channel) {
    const UniqueFile file = openForReading(files.installer());
    LARGE_INTEGER size{};
    if (!file || !GetFileSizeEx(file.get(), &size))
        return std::nullopt;
    const std::optional<Sha256Digest> digest = sha256OfFile(file.get());
    if (!digest)
        return std::nullopt;
    return UpdateManifest{version, installerUrl(version, channel), lowerHex(*digest),
                          static_cast<std::uint64_t>(size.QuadPart), ""};
}

// The broker's check, whose server is the folder.
bool clientAccepts(const ReleaseFiles& files, const UpdateChannelIdentity& channel) {
    const auto fetch = [&](const SecretText& url, const TransferLimits&) -> std::optional<std::string> {
        const bool first = url.view() == widenedAscii(defaultManifestUrl(channel));
        const auto body =
            readSmallFile(first ? files.newManifest() : files.signature(), kMaxJsonDocumentBytes);
        return body ? std::optional(std::string(body->view())) : std::nullopt;
    };
    const UpdateCheckResult result =
        runUpdateCheck(updateCheckRequest({}, channel), channel,
                       {.fetchJson = fetch, .verifySignature = verifyManifestSignature});
    const UniqueFile installer = openForReading(files.installer());
    return (result.code == UpdateCode::kAvailable || result.code == UpdateCode::kUpToDate) &&
           isManifestStillTrusted(result.manifest, channel, verifyManifestSignature) && installer &&
           isAnnouncedInstaller(installer.get(), result.manifest);
}

// The version that the server announces so far, if it is newer; empty otherwise.
std::string announcedNewer(const ReleaseFiles& files, const std::string& version) {
    const auto body = readSmallFile(files.manifest(), kMaxJsonDocumentBytes);
    const auto announced = body ? parseUpdateManifest(body->view()) : std::nullopt;
    return announced && compareVersions(announced->version, version) == 1 ? announced->version
                                                                          : std::string();
}

SignerReport stopped(std::wstring trouble) {
    return {{}, std::move(trouble)};
}

bool isPublicHalf(const std::wstring& path, const SigningKey& key) {
    const std::optional<SecretUtf8> pem = readSmallFile(path, kMaxKeyFileBytes);
    return pem && publicKeyFromPem(pem->view()) == key.point;
}

// Empty when a release may be made of this at all.
std::wstring findTrouble(const ReleasePlan& plan, const SigningKey& key) {
    if (!parseVersion(narrowedAscii(plan.version).view()))
        return L"not a version as Semantic Versioning 2.0.0 has them: " + plan.version;
    if (!isChannelOrigin(narrowedAscii(plan.origin).view()))
        return L"not an https origin in small letters without a path: " + plan.origin;
    if (!plan.publicKeyPath.empty() && !isPublicHalf(plan.publicKeyPath, key))
        return L"not the public half of the private key: " + plan.publicKeyPath;
    const UniqueFile setup = openForReading(plan.setupPath);
    LARGE_INTEGER size{};
    if (!setup || !GetFileSizeEx(setup.get(), &size))
        return L"cannot be read: " + plan.setupPath;
    if (!isInstallerSize(static_cast<std::uint64_t>(size.QuadPart)))
        return L"not of 1 to 536870912 bytes: " + plan.setupPath;
    return {};
}

}  // namespace

std::optional<SigningKey> generateSigningKey() {
    const UniqueCryptoProvider provider = openEcdsa();
    UniqueCryptoKey key;
    PrivateKeyBlob blob;
    ULONG written = 0;
    if (!provider || BCryptGenerateKeyPair(provider.get(), key.put(), 256, 0) < 0 ||
        BCryptFinalizeKeyPair(key.get(), 0) < 0 ||
        BCryptExportKey(key.get(), nullptr, BCRYPT_ECCPRIVATE_BLOB, blob.bytes(), sizeof blob, &written, 0) <
            0 ||
        written != sizeof blob)
        return std::nullopt;
    return SigningKey{SecretBytes(blob.scalar.begin(), blob.scalar.end()), blob.point};
}

std::optional<std::string> signMessage(std::string_view message, const SigningKey& key) {
    const UniqueCryptoProvider provider = openEcdsa();
    std::optional<Sha256Digest> digest = sha256Of(std::as_bytes(std::span(message)));
    PrivateKeyBlob blob;
    blob.point = key.point;
    if (!provider || !digest || key.scalar.size() != blob.scalar.size())
        return std::nullopt;
    std::copy(key.scalar.begin(), key.scalar.end(), blob.scalar.begin());
    UniqueCryptoKey handle;
    EcSignature signature{};
    ULONG written = 0;
    if (BCryptImportKeyPair(provider.get(), nullptr, BCRYPT_ECCPRIVATE_BLOB, handle.put(), blob.bytes(),
                            sizeof blob, 0) < 0 ||
        BCryptSignHash(handle.get(), nullptr, reinterpret_cast<PUCHAR>(digest->data()),
                       static_cast<ULONG>(digest->size()), reinterpret_cast<PUCHAR>(signature.data()),
                       static_cast<ULONG>(signature.size()), &written, 0) < 0 ||
        written != signature.size())
        return std::nullopt;
    return lowerHex(signature);
}

SignerReport makeKeyFiles(const std::wstring& privateKeyPath, const std::wstring& publicKeyPath) {
    const std::optional<SigningKey> key = generateSigningKey();
    if (!key)
        return stopped(L"the system made no key");
    if (!writeNewFile(privateKeyPath, privateKeyPem(*key).view()))
        return stopped(L"exists already or cannot be written: " + privateKeyPath);
    if (!writeNewFile(publicKeyPath, publicKeyPem(key->point))) {
        DeleteFileW(privateKeyPath.c_str());
        return stopped(L"exists already or cannot be written: " + publicKeyPath);
    }
    return {{L"private key, to be kept: " + privateKeyPath, L"public key, for the build: " + publicKeyPath},
            {}};
}

std::optional<SigningKey> readSigningKey(const std::wstring& path) {
    const std::optional<SecretUtf8> pem = readSmallFile(path, kMaxKeyFileBytes);
    return pem ? privateKeyFromPem(pem->view()) : std::nullopt;
}

SignerReport publishRelease(const ReleasePlan& plan, const SigningKey& key) {
    if (std::wstring trouble = findTrouble(plan, key); !trouble.empty())
        return stopped(std::move(trouble));
    const std::string version(narrowedAscii(plan.version).view());
    const UpdateChannelIdentity channel{std::string(narrowedAscii(plan.origin).view()), key.point};
    ReleaseFiles files(plan.outFolder, plan.version);
    if (!files.begin())
        return stopped(L"published before, or the folder cannot be written: " + plan.version);
    if (!CopyFileW(plan.setupPath.c_str(), files.installer().c_str(), TRUE))
        return stopped(L"the installer cannot be copied into " + plan.outFolder);
    const std::optional<UpdateManifest> manifest = describeInstaller(files, version, channel);
    const std::optional<std::string> signature =
        manifest ? signMessage(buildSignedMessage(*manifest), key) : std::nullopt;
    if (!signature)
        return stopped(L"the private key signs nothing: is its public half that of another key?");
    DeleteFileW(files.newManifest().c_str());  // left by a run that was cut off
    if (!writeNewFile(files.signature(), signatureJson(*signature)) ||
        !writeNewFile(files.newManifest(), manifestJson(*manifest)))
        return stopped(L"cannot be written: " + plan.outFolder);
    if (!clientAccepts(files, channel))
        return stopped(L"the broker would refuse this release; nothing was published");
    const std::string newer = announcedNewer(files, version);
    if (!files.commit())
        return stopped(L"cannot be replaced: " + files.manifest());
    SignerReport report{{files.installer(), files.signature(), files.manifest()}, {}};
    if (!newer.empty())
        report.lines.push_back(L"NOTE: older than what was announced until now: " + widenedAscii(newer));
    return report;
}

}  // namespace vextra
