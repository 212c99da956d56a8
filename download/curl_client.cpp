#include "download/curl_client.h"

#include <curl/curl.h>
#include <strings.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "download/completion.h"
#include "download/response.h"
#include "main/run/log.h"
#include "main/run/record.h"
#include "main/run/result_files.h"

namespace {

constexpr const char* kOp = "vexo_tarv_http_https_download";
constexpr char kVerifyFile[] = "/data/cert/ssl_verify";
constexpr char kCaFile[] = "/data/cert/ca.crt";
constexpr char kClientCert[] = "/data/cert/client.crt";
constexpr char kClientKey[] = "/data/cert/client.key";
constexpr char kTlsVersionFile[] = "/data/cert/cust_tls_version.txt";
constexpr long kLowSpeedSeconds = 60;
constexpr long kLowSpeedBytes = 30;  // per second

bool exists(const char* path) {
  return access(path, F_OK) == 0;
}

void set_transfer(CURL* curl) {
  // No limit as a whole: how long a good download takes depends on flash and network.
  curl_easy_setopt(curl, CURLOPT_TIMEOUT, 0L);
  curl_easy_setopt(curl, CURLOPT_URL, ginfo->url);
  curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, kLowSpeedSeconds);
  curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, kLowSpeedBytes);
  // The response intake parses the header itself, as it does for the plain client.
  curl_easy_setopt(curl, CURLOPT_HEADER, 1L);
  // Without it libcurl would pass on the body of an error page.
  curl_easy_setopt(curl, CURLOPT_FAILONERROR, 1L);
  // HTTP/2 has header names in lower case, which the response intake does not know.
  curl_easy_setopt(curl, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
}

void set_verification(CURL* curl) {
  const bool verify = exists(kVerifyFile);
  TARV_LOG(kOp, verify ? "verify the peer\n" : "not verify the peer\n");
  curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, verify ? 1L : 0L);
  curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, verify ? 2L : 0L);
}

void set_certificates(CURL* curl) {
  if (exists(kCaFile)) {
    TARV_LOG(kOp, "load %s\n", kCaFile);
    curl_easy_setopt(curl, CURLOPT_CAINFO, kCaFile);
  }
  if (exists(kClientCert) && exists(kClientKey)) {
    TARV_LOG(kOp, "load [%s] [%s]\n", kClientCert, kClientKey);
    curl_easy_setopt(curl, CURLOPT_SSLCERT, kClientCert);
    curl_easy_setopt(curl, CURLOPT_SSLKEY, kClientKey);
  }
}

struct tls_version {
  const char* name;
  long version;
  long max_version;
};
constexpr tls_version kTlsVersions[] = {
    {"tlsv1.0", CURL_SSLVERSION_TLSv1_0, CURL_SSLVERSION_MAX_TLSv1_0},
    {"tlsv1.1", CURL_SSLVERSION_TLSv1_1, CURL_SSLVERSION_MAX_TLSv1_1},
    {"tlsv1.2", CURL_SSLVERSION_TLSv1_2, CURL_SSLVERSION_MAX_TLSv1_2},
};

// Applies the version that the file names, if it names one.
void set_tls_version(CURL* curl) {
  FILE* const file = fopen(kTlsVersionFile, "re");
  if (file == nullptr) return;
  char text[64] = "";
  (void)!fread(text, 1, sizeof text - 1, file);
  fclose(file);
  TARV_LOG(kOp, "TLS version[%s]\n", text);
  for (const tls_version& row : kTlsVersions) {
    if (strcasecmp(text, row.name) != 0) continue;
    // The second call replaces the first: the maximum is what counts, the minimum stays libcurl's.
    curl_easy_setopt(curl, CURLOPT_SSLVERSION, row.version);
    curl_easy_setopt(curl, CURLOPT_SSLVERSION, row.max_version);
  }
}

void set_tls(CURL* curl) {
  if (strstr(ginfo->url, "https") == nullptr) {
    TARV_LOG(kOp, "Download file over http protocol\n");
    return;
  }
  TARV_LOG(kOp, "Download file over https protocol\n");
  set_verification(curl);
  set_certificates(curl);
  set_tls_version(curl);
}

// Runs the transfer. Returns 0, or -1 with libcurl's text as failure reason.
int perform(CURL* curl) {
  const CURLcode code = curl_easy_perform(curl);
  if (code == CURLE_OK) return 0;
  const char* const text = curl_easy_strerror(code);
  TARV_LOG(kOp, "Curl perform error,error code[%d][%s]\n", static_cast<int>(code), text);
  tarv_write_fail_reason(text);
  return -1;
}

void log_transfer(CURL* curl) {
  const char* effective_url = nullptr;
  long verify_result = 0;
  curl_off_t size = 0;
  curl_easy_getinfo(curl, CURLINFO_EFFECTIVE_URL, &effective_url);
  TARV_LOG(kOp, "Redirect to[%s]\n", effective_url != nullptr ? effective_url : "");
  curl_easy_getinfo(curl, CURLINFO_SSL_VERIFYRESULT, &verify_result);
  // An interface, odd as it looks: see docs/architecture.md.
  TARV_LOG(kOp, "peer verification[%s]\n", verify_result == 0 ? "fine" : "BAAAD");
  curl_easy_getinfo(curl, CURLINFO_SIZE_DOWNLOAD_T, &size);
  TARV_LOG(kOp, "Download %lld bytes\n", static_cast<long long>(size));
}

}  // namespace

int vexo_tarv_http_https_download() {
  CURL* const curl = curl_easy_init();
  if (curl == nullptr) {
    TARV_LOG(kOp, "Curl init error\n");
    return -1;
  }
  set_transfer(curl);
  set_tls(curl);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, nullptr);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, curl_write_data_handle);
  const int transferred = perform(curl);
  log_transfer(curl);
  curl_easy_cleanup(curl);
  return tarv_complete_download(kOp, transferred != 0) == 0 ? transferred : -1;
}
