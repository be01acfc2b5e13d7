// libcurl, an independent client, reads the encoder.
#include "appliance/encoder/testing/test_client.h"

#include <array>
#include <curl/curl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <unistd.h>

namespace {

constexpr const char* query = "/vexo-cgi/view/param.cgi?action=list&group=Image.Rotation";

struct Fetched {
    CURLcode result = CURLE_OK;
    long status = 0;
    std::string body;
};

std::size_t keep(char* bytes, std::size_t one, std::size_t count, void* body) {
    static_cast<std::string*>(body)->append(bytes, one * count);
    return one * count;
}

struct Wish {
    std::string url{};
    std::string credentials{}; // "user:password"
    long scheme = CURLAUTH_BASIC;
    bool verify = true;
    std::string caFile{};
};

Fetched fetch(const Wish& wish) {
    Fetched fetched;
    CURL* curl = curl_easy_init();
    curl_easy_setopt(curl, CURLOPT_URL, wish.url.c_str());
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, 10L);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_NOPROXY, "*");
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, keep);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &fetched.body);
    curl_easy_setopt(curl, CURLOPT_HTTPAUTH, wish.scheme);
    if (!wish.credentials.empty())
        curl_easy_setopt(curl, CURLOPT_USERPWD, wish.credentials.c_str());
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, wish.verify ? 1L : 0L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, wish.verify ? 2L : 0L);
    if (!wish.caFile.empty())
        curl_easy_setopt(curl, CURLOPT_CAINFO, wish.caFile.c_str());
    fetched.result = curl_easy_perform(curl);
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &fetched.status);
    curl_easy_cleanup(curl);
    return fetched;
}

std::string url(const char* scheme, std::uint16_t port) {
    return std::string(scheme) + "://127.0.0.1:" + std::to_string(port) + query;
}

class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string name = std::filesystem::temp_directory_path() / "encoder-test-XXXXXX";
        path_ = mkdtemp(name.data());
    }
    ~TemporaryFolder() { std::filesystem::remove_all(path_); }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    std::string file(const char* name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

// Writes a certificate for 127.0.0.1 and its key to two files.
void writeCertificate(const std::string& certificateFile, const std::string& keyFile) {
    EVP_PKEY* key = EVP_RSA_gen(2048);
    X509* certificate = X509_new();
    X509_set_version(certificate, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate), 3600);
    const auto* name = reinterpret_cast<const unsigned char*>("127.0.0.1");
    X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_ASC, name, -1, -1, 0);
    X509_set_issuer_name(certificate, X509_get_subject_name(certificate));
    X509_set_pubkey(certificate, key);
    X509_sign(certificate, key, EVP_sha256());
    FILE* file = std::fopen(certificateFile.c_str(), "w");
    PEM_write_X509(file, certificate);
    std::fclose(file);
    file = std::fopen(keyFile.c_str(), "w");
    PEM_write_PrivateKey(file, key, nullptr, nullptr, 0, nullptr, nullptr);
    std::fclose(file);
    X509_free(certificate);
    EVP_PKEY_free(key);
}

} // namespace

TEST(CurlClient, FetchesWithoutCredentials) {
    const TestEncoder encoder;
    const Fetched fetched = fetch({url("http", encoder.http())});
    EXPECT_EQ(fetched.status, 200);
    EXPECT_EQ(fetched.body, "Image.Rotation=0\n");
}

TEST(CurlClient, PassesBasicAndDigest) {
    for (const bool digest : {false, true}) {
        std::vector<std::string> words{"--user", "joe", "--password", "s3:c r%t"};
        if (digest)
            words.emplace_back("--digest");
        const TestEncoder encoder(words);
        const long scheme = digest ? CURLAUTH_DIGEST : CURLAUTH_BASIC;
        EXPECT_EQ(fetch({url("http", encoder.http()), "joe:s3:c r%t", scheme}).status, 200) << digest;
        EXPECT_EQ(fetch({url("http", encoder.http()), "joe:wrong", scheme}).status, 401) << digest;
        EXPECT_EQ(fetch({url("http", encoder.http()), "", scheme}).status, 401) << digest;
        const long other = digest ? CURLAUTH_BASIC : CURLAUTH_DIGEST;
        EXPECT_EQ(fetch({url("http", encoder.http()), "joe:s3:c r%t", other}).status, 401) << digest;
    }
}

TEST(CurlClient, FetchesUnderTlsWithACertificateMadeAtStart) {
    const TestEncoder encoder({"--https"});
    const Fetched fetched = fetch({url("https", encoder.https()), "", CURLAUTH_BASIC, false});
    EXPECT_EQ(fetched.status, 200);
    EXPECT_EQ(fetched.body, "Image.Rotation=0\n");
    EXPECT_EQ(fetch({url("https", encoder.https())}).result, CURLE_PEER_FAILED_VERIFICATION);
    EXPECT_NE(fetch({url("http", encoder.https())}).result, CURLE_OK)
        << "the TLS port does not serve plain HTTP";
    EXPECT_THAT(get(encoder.http(), "/requests").body, testing::HasSubstr("\"protocol\": \"https\""));
}

TEST(CurlClient, VerifiesACertificateFromFiles) {
    const TemporaryFolder folder;
    writeCertificate(folder.file("cert.pem"), folder.file("key.pem"));
    const TestEncoder encoder(
        {"--https", "--certificate", folder.file("cert.pem"), "--key", folder.file("key.pem")});
    const Fetched fetched =
        fetch({url("https", encoder.https()), "", CURLAUTH_BASIC, true, folder.file("cert.pem")});
    EXPECT_EQ(fetched.result, CURLE_OK);
    EXPECT_EQ(fetched.status, 200);
}

TEST(CurlClient, BadCertificateFilesAreAnError) {
    const TemporaryFolder folder;
    writeCertificate(folder.file("cert.pem"), folder.file("key.pem"));
    std::ofstream(folder.file("empty.pem")).flush();
    for (const auto& [certificate, key] :
         {std::pair("missing.pem", "key.pem"), std::pair("cert.pem", "missing.pem"),
          std::pair("empty.pem", "key.pem"), std::pair("cert.pem", "cert.pem")}) {
        Options options;
        options.httpsPort = 0;
        options.certificateFile = folder.file(certificate);
        options.keyFile = folder.file(key);
        Device device(options);
        Server server(device);
        EXPECT_THAT(server.start(), testing::StartsWith("cannot use the ")) << certificate << " " << key;
    }
}

TEST(CurlClient, StreamsMotionJpegUnderTls) {
    const TestEncoder encoder({"--https"});
    CURL* curl = curl_easy_init();
    const std::string address =
        "https://127.0.0.1:" + std::to_string(encoder.https()) + "/vexo-cgi/mjpg/video.cgi";
    std::string body;
    curl_easy_setopt(curl, CURLOPT_URL, address.c_str());
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 0L);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, 1000L);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, keep);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &body);
    EXPECT_EQ(curl_easy_perform(curl), CURLE_OPERATION_TIMEDOUT);
    curl_easy_cleanup(curl);
    int parts = 0;
    for (std::size_t at = body.find("image/jpeg"); at != std::string::npos;
         at = body.find("image/jpeg", at + 1))
        ++parts;
    EXPECT_GE(parts, 10); // of 25, because the machine may be busy
}
