// qel digest
#include "command.h"
#include "credential.h"
#include "text.h"
#include "texts.h"

namespace tool {
namespace {

std::string digest_of(const std::string &path, const Algorithm &algorithm) {
    const Context context;
    uint8_t *digest = nullptr;
    uint32_t length = 0;
    bool fed = false;
    const auto step = [&](std::span<const uint8_t> data, uint32_t mode) {
        const bool last = mode == QEL_MODE_FINAL;
        const QelStatus status =
            qel_digest(context, data.data(), static_cast<uint32_t>(data.size()), mode,
                       *algorithm.digest, last ? &digest : nullptr, last ? &length : nullptr);
        if (status != QEL_OK)
            throw library_failure(status, text_of(Text::cannot_digest, {display_name(path)}));
    };
    each_block(path, [&](std::span<const uint8_t> block) {
        step(block, QEL_MODE_UPDATE);
        fed = true;
    });
    if (!fed)
        return hex(algorithm.digest_of_nothing);
    step({}, QEL_MODE_FINAL);
    const LibraryBytes owner(digest);
    return hex({digest, length});
}

} // namespace

Exit run_digest(const Arguments &arguments) {
    const Algorithm &algorithm = algorithm_named(arguments.value("algorithm", "md5"));
    const std::vector<std::string> paths = arguments.operands_or_stdin();
    arguments.check_stdin_once(paths);
    Outcome outcome(arguments.command());
    Json json = arguments.report();
    json["algorithm"] = algorithm.name;
    json["digests"] = Json::array();
    for (const std::string &path : paths) {
        Json one;
        one["file"] = utf8_or_latin1(path);
        try {
            const std::string digest = digest_of(path, algorithm);
            one["digest"] = digest;
            if (!arguments.json())
                put(digest + "  " + escaped(path) + "\n");
        } catch (const OutputLost &) {
            throw;
        } catch (const Failure &failure) {
            one["error"] = failure_json(failure);
            outcome.fail(failure);
        }
        json["digests"].push_back(one);
    }
    if (arguments.json())
        put_json(json);
    return outcome.exit();
}

} // namespace tool
