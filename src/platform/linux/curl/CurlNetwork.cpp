#include "platform/linux/curl/CurlNetwork.h"

#include <utility>

#include "platform/linux/curl/CurlBackgroundSession.h"
#include "platform/linux/curl/CurlHttpSession.h"
#include "platform/linux/curl/CurlWorker.h"

namespace quillbeam {

CurlNetwork::CurlNetwork(Dispatch& dispatch, CurlNetworkParts parts)
    : dispatch_(dispatch), parts_(std::move(parts)), worker_(std::make_unique<CurlWorker>(*parts_.suspendClock)) {}

CurlNetwork::~CurlNetwork() = default;

std::unique_ptr<HttpSession> CurlNetwork::makeSession(HttpSessionOptions options) {
  return std::make_unique<CurlHttpSession>(*worker_, options);
}

std::unique_ptr<BackgroundTransferSession> CurlNetwork::makeBackgroundSession(BackgroundTransferOptions options,
                                                                              BackgroundTransferDelegate& delegate) {
  auto queue = dispatch_.makeSerialQueue("network." + options.identifier);
  const CurlUploadQueue::Routes routes{*parts_.routeProbe, parts_.routeRetryInterval};
  return std::make_unique<CurlBackgroundSession>(*worker_, routes, std::move(queue), std::move(options), delegate);
}

}  // namespace quillbeam
