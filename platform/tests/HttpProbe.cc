// One GET from a process of its own, so that a test row can give it the environment, desktop settings and files it
// starts with; prints "<status> <route> <body>".
#include <iostream>

#include "platform/HttpTransport.h"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  orvistelle::platform::HttpRequest request;
  request.url = argv[1];
  request.idle = std::chrono::seconds(5);
  const orvistelle::platform::HttpResponse response = orvistelle::platform::HttpSend(request);
  std::cout << response.status << " " << response.route << " " << response.body.value_or("");
  return 0;
}
