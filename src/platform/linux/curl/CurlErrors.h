#pragma once

#include <curl/curl.h>

#include "platform/network/Http.h"

namespace quillbeam {

/// What a failure of libcurl means at the port. Below it lies libcurl's fixed text for the code (domain "CURLcode"),
/// never its detailed one, which can name hosts; below a failed connection also the system's reason.
Error networkErrorOf(CURLcode code, int systemErrorNumber);

}  // namespace quillbeam
