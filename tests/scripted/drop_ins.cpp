// Drop-in writing and reason linking: real files unless the script refuses.
#include "answers.h"
#include "file_effects.h"
#include "process_state.h"
#include "record.h"
#include "unit_library.h"

using scripted::FormatText;
using scripted::detail::BeginCall;

namespace VELA {
namespace Systemd {

bool AddUnitSection(const std::string& dir, const std::string& fileName, const std::string& section,
                    const std::map<std::string, std::string>& settings) {
    const Json::Value& script =
        BeginCall("VELA::Systemd::AddUnitSection",
                  {FormatText(dir), FormatText(fileName), FormatText(section), scripted::FormatSettings(settings)})
            .script;
    const std::string path = dir + fileName;
    const Json::Value& answer = scripted::Answer(script, "add_unit_section", path);
    if (!answer.isNull()) {
        return scripted::AnswerOutcome(answer);
    }
    if (!scripted::MakeDirectories(dir) || !scripted::WriteSectionFile(path, section, settings)) {
        scripted::detail::SetErrorFromErrno(__LINE__);
        return false;
    }
    return true;
}

bool LinkVelaReason(const std::string& dropInDir, const std::string& reasonFile) {
    const Json::Value& script =
        BeginCall("VELA::Systemd::LinkVelaReason", {FormatText(dropInDir), FormatText(reasonFile)}).script;
    const Json::Value& answer = scripted::Answer(script, "link_vela_reason", dropInDir);
    if (!answer.isNull()) {
        return scripted::AnswerOutcome(answer);
    }
    if (!scripted::MakeDirectories(dropInDir) ||
        !scripted::LinkOnce(reasonFile, dropInDir + scripted::REASON_LINK_NAME)) {
        scripted::detail::SetErrorFromErrno(__LINE__);
        return false;
    }
    return true;
}

}  // namespace Systemd
}  // namespace VELA
