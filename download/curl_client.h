// The HTTPS client, on libcurl's easy interface. Certificates and TLS version come from files under
// /data/cert.
#ifndef TARVOLIN_DOWNLOAD_CURL_CLIENT_H
#define TARVOLIN_DOWNLOAD_CURL_CLIENT_H

// Downloads ginfo->url and feeds the response intake. No resume, no retry, no redirect is followed.
// Returns 0 when the transfer succeeded and the whole package was stored, else -1, logged.
[[nodiscard]] int vexo_tarv_http_https_download();

#endif
