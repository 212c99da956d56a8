// The plain HTTP client: one blocking IPv4 connection, one GET request, no retry.
#ifndef TARVOLIN_DOWNLOAD_SOCKET_CLIENT_H
#define TARVOLIN_DOWNLOAD_SOCKET_CLIENT_H

// Downloads ginfo->url and feeds the response intake until the server closes the connection or is silent for
// 30 s. Returns 0 when the whole package was received and stored, else -1, logged.
[[nodiscard]] int vexo_tarv_http_download();

#endif
