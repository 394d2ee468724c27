// The support log's line for one HTTP exchange, kept apart from the transport so that the transport stays small.
#pragma once

#include <string>

#include "platform/CurlLibrary.h"
#include "platform/HttpTransport.h"

namespace orvistelle::platform {

// "http GET 127.0.0.1:54321/auth/v1/user -> 401 in 12 ms, proxy 10.0.0.1:3128", with libcurl's error text when the
// transfer failed. Scheme, user information, query and fragment are left out: they may carry credentials or an
// account's identity; `route` names a proxy by host and port alone.
void NoteHttpExchange(const CurlLibrary& curl, CURL* handle, const HttpRequest& request, CURLcode result,
                      const std::string& route);

}  // namespace orvistelle::platform
