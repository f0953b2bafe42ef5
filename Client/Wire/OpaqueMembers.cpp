#include "Client/Wire/OpaqueMembers.h"

namespace VantryLocalHub::dto {

namespace {

/// The place after the string that begins at inBegin, which holds its opening quote.
std::size_t EndOfString(std::string_view inText, std::size_t inBegin)
{
    for (auto place = inBegin + 1; place < inText.size(); ++place) {
        if (inText[place] == '\\') {
            ++place;
        } else if (inText[place] == '"') {
            return place + 1;
        }
    }
    return inText.size();
}

/// The place of the comma or bracket that ends the value that begins at inBegin.
std::size_t EndOfValue(std::string_view inText, std::size_t inBegin)
{
    std::size_t depth = 0;
    for (auto place = inBegin; place < inText.size();) {
        switch (inText[place]) {
            case '"':
                place = EndOfString(inText, place);
                continue;
            case '{':
            case '[':
                ++depth;
                break;
            case '}':
            case ']':
                if (depth == 0) return place;
                --depth;
                break;
            case ',':
                if (depth == 0) return place;
                break;
            default:
                break;
        }
        ++place;
    }
    return inText.size();
}

std::string Quoted(std::string_view inText)
{
    noxcore::serialization::JSONWriter writer;
    writer.String(inText);
    return writer.TakeText();
}

/// Keys are compared unescaped; almost no key has an escape.
bool IsKey(std::string_view inWritten, std::string_view inKey)
{
    if (inWritten.find('\\') == std::string_view::npos) {
        return inWritten == inKey;
    }
    return noxcore::serialization::UnescapeJSONString(inWritten) == inKey;
}

/// Keys as they are written, without their quotes. False from the function ends the pass.
template <class Function>
void WalkMembers(std::string_view inObject, Function&& inFunction)
{
    std::size_t place = 0;
    while (place + 1 < inObject.size() && inObject[place + 1] == '"' && inObject[place] == (place == 0 ? '{' : ',')) {
        const auto keyEnd = EndOfString(inObject, place + 1);
        const auto valueEnd = EndOfValue(inObject, keyEnd + 1);
        if (keyEnd >= inObject.size() || valueEnd >= inObject.size()) {
            return;
        }
        const auto key = inObject.substr(place + 2, keyEnd - place - 3);
        if (!inFunction(key, inObject.substr(keyEnd + 1, valueEnd - keyEnd - 1))) {
            return;
        }
        place = valueEnd;
    }
}

}  // namespace

void ForEachMember(std::string_view inObject,
                   const std::function<bool(std::string_view inKey, std::string_view inValue)>& inFunction)
{
    WalkMembers(inObject, [&inFunction](std::string_view inKey, std::string_view inValue) {
        if (inKey.find('\\') == std::string_view::npos) {
            return inFunction(inKey, inValue);
        }
        return inFunction(noxcore::serialization::UnescapeJSONString(inKey), inValue);
    });
}

std::string_view FindMember(std::string_view inObject, std::string_view inKey)
{
    std::string_view result;
    WalkMembers(inObject, [&](std::string_view inMember, std::string_view inValue) {
        if (IsKey(inMember, inKey)) {
            result = inValue;
        }
        return true;
    });
    return result;
}

std::string TextOf(std::string_view inValue)
{
    if (inValue.size() < 2 || inValue.front() != '"' || inValue.back() != '"') {
        return {};
    }
    return noxcore::serialization::UnescapeJSONString(inValue.substr(1, inValue.size() - 2));
}

void SetMember(RawJSON& ioObject, std::string_view inKey, std::string_view inValue)
{
    MemberEdits edits;
    edits.Set(inKey, inValue);
    edits.ApplyTo(ioObject);
}

void SetTextMember(RawJSON& ioObject, std::string_view inKey, std::string_view inText)
{
    SetMember(ioObject, inKey, Quoted(inText));
}

void MemberEdits::Set(std::string_view inKey, std::string_view inValue)
{
    const auto [place, isNew] = mPlaces.try_emplace(std::string(inKey), mMembers.size());
    if (isNew)
        mMembers.emplace_back(inKey, inValue);
    else
        mMembers[place->second].second = inValue;
}

void MemberEdits::Add(const RawJSON& inObject)
{
    ForEachMember(inObject.Text(), [&](std::string_view inKey, std::string_view inValue) {
        Set(inKey, inValue);
        return true;
    });
}

void MemberEdits::ApplyTo(RawJSON& ioObject) const
{
    std::string text = "{";
    const auto append = [&text](std::string_view inQuotedKey, std::string_view inMember) {
        if (text.size() > 1) text += ',';
        text.append(inQuotedKey).append(":").append(inMember);
    };
    std::vector<bool> placed(mMembers.size(), false);
    WalkMembers(ioObject.Text(), [&](std::string_view inMember, std::string_view inOld) {
        const auto edit = mPlaces.find(noxcore::serialization::UnescapeJSONString(inMember));
        if (edit == mPlaces.end()) {
            append('"' + std::string(inMember) + '"', inOld);
        } else if (!placed[edit->second]) {
            append('"' + std::string(inMember) + '"', mMembers[edit->second].second);
            placed[edit->second] = true;
        }
        return true;
    });
    for (std::size_t i = 0; i < mMembers.size(); ++i)
        if (!placed[i]) append(Quoted(mMembers[i].first), mMembers[i].second);
    text += '}';
    ioObject.mText = std::move(text);
}

}  // namespace VantryLocalHub::dto
