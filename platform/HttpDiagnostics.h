// The support log's line for one HTTP exchange, kept apart from the transport so that the transport stays small.
#pragma once

#include <curl/curl.h>

#include "platform/HttpTransport.h"

namespace orvistelle::platform {

// "http GET 127.0.0.1:54321/auth/v1/user -> 401 in 12 ms", with libcurl's error text when the transfer failed.
// Scheme, user information, query and fragment are left out: they may carry credentials or an account's identity.
void NoteHttpExchange(CURL* curl, const HttpRequest& request, CURLcode result);

}  // namespace orvistelle::platform
