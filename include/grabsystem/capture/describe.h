// What a file of the system holds, as named fields: its kind (file_kind.h)
// and its header, read from the bytes without decoding any frame, for
// programs that show a file's make-up (grabsys info prints these fields as
// text or JSON). Fields come in a fixed order per kind; records (one per
// run or frame record) as rows of numbers.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "grabsystem/capture/file_kind.h"
#include "grabsystem/format/coding.h"
#include "grabsystem/grabsystem_export.h"
#include "grabsystem/platform/status.h"

namespace GrabSystem {
namespace capture {

struct FileDescription {
    struct Field {
        std::string key;
        bool isText = false;
        std::string text;   // a text field's value
        double number = 0;  // a number field's value
    };
    FileKind kind = FileKind::kUnknown;
    std::vector<Field> fields;
    std::vector<std::vector<std::pair<std::string, double>>> records;
    // Why the file is not whole (records or pixels end early, a BMP that
    // cannot be read), also said by its "complete" or "readable" field;
    // empty for a whole file. The fields still describe what could be read.
    std::string damage;

    void Number(const std::string& key, double value);
    void Text(const std::string& key, const std::string& value);
};

// The description of the file at `path` from its bytes. Corruption naming
// the file and the cause when it is not a file of this system, or is one by
// its name or head alone and its header cannot be read; `description` is
// then incomplete. A file whose header reads but whose body is damaged is
// described, OK, with `damage` set.
GRABSYSTEM_EXPORT Status DescribeFile(const std::string& path, format::Bytes file, FileDescription& description);

}  // namespace capture
}  // namespace GrabSystem
