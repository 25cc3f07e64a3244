#include "typed_transfer.h"

#include <array>
#include <filesystem>
#include <vector>

#include <unistd.h>

#include "failure.h"
#include "progress_bar.h"

TransferOptions typedTransfer(bool sending, const std::string& file, const std::string& protocol) {
    TransferOptions request;
    request.file = file;
    request.protocol.clear();
    for (const char* name : std::array{"text", "xmodem", "ymodem", "zmodem"})
        if (protocol[0] == name[0])
            request.protocol = name;
    if (request.protocol.empty())
        throw Failure("\"" + protocol + "\" is no protocol");
    sending ? requireSending(request) : requireReceiving(request);
    return request;
}

std::string runTypedTransfer(Link& link, bool sending, const TransferOptions& request,
                             const std::function<bool()>& giveUp) {
    ProgressBar bar(request.file);
    const TransferUser user{[&bar](uint64_t done, uint64_t total) { bar.show(done, total); }, STDIN_FILENO,
                            giveUp};
    std::vector<std::string> files{request.file};
    if (sending)
        sendFile(link, request, user);
    else
        files = receiveFile(link, request, user);
    uint64_t bytes = 0; // of the files; the bar knows those of the line
    for (const std::string& file : files)
        bytes += std::filesystem::file_size(file);
    return bar.summary(bytes);
}
