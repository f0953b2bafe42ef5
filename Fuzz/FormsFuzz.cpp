// Any bytes as a form body in each of the three encodings: nothing may be read outside the body, and the fields of a
// multipart body must be parts of it, in their order.

#include <cstdlib>

#include "Platform/noxnet/Forms.h"

using namespace noxnet::http::server;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* inData, std::size_t inSize)
{
    constexpr std::string_view kTypes[] = {"multipart/form-data; boundary=b", "application/x-www-form-urlencoded",
                                           "application/json"};
    // A copy of its own size, so that a read past the end is seen.
    const auto body = noxcore::utility::CopyToRecycledMemory({reinterpret_cast<const char*>(inData), inSize});
    for (const std::string_view type : kTypes) {
        std::vector<FormField> fields;
        const bool read = ParseForm(*body, type, 1000, fields);
        if (!read && !fields.empty()) std::abort();
        const char* previous = body->data();
        for (const FormField& field : fields) {
            volatile char sum = 0;
            for (const char byte : field.mValue.View())
                sum = static_cast<char>(sum + byte);
            if (type != kTypes[0]) continue;
            if (field.mValue.data() < previous || field.mValue.data() + field.mValue.size() > body->data() + inSize)
                std::abort();
            previous = field.mValue.data() + field.mValue.size();
        }
    }
    // The first bytes as a Content-Type of a multipart body of the rest.
    const std::size_t split = std::min<std::size_t>(inSize, 40);
    std::vector<FormField> fields;
    ParseForm(body->Part(split, inSize), "multipart/form-data;" + std::string(body->Part(0, split).View()), 1000,
              fields);
    return 0;
}
