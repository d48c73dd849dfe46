#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace quillo::agent {

// One HTTP/1.1 request as the control server sees it.
struct HttpRequest {
    std::string method;                          // as sent
    std::string target;                          // as sent, query included
    std::map<std::string, std::string> headers;  // lower-cased names, trimmed values
    std::string body;
    size_t size = 0;  // bytes the request took in the input, head and body
};

// Reads a request from the start of `data`: none while the head's blank line or some of the
// body (framed by Content-Length) has not arrived yet.
std::optional<HttpRequest> parseRequest(std::string_view data);

// "HTTP/1.1 {status} {reason}" with the server's headers and, when given, a JSON body.
std::string httpResponse(int status, const std::string& session, const std::string& body = {});

}  // namespace quillo::agent
