#include "panelsim/scenario/YamlDocument.h"

#include "panelsim/board/Utf8.h"
#include "panelsim/scenario/PlacedError.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <set>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>
#include <yaml-cpp/anchor.h>
#include <yaml-cpp/emitterstyle.h>
#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/mark.h>
#include <yaml-cpp/parser.h>

namespace panelsim {

namespace {

constexpr std::size_t deepestNesting = 10;
constexpr const char* noAnchors =
    "a scenario has no anchors and aliases: write the value out, in quotes if it is a text "
    "that begins with & or *";
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
/** Without it the parser takes the end of the content for the end of a quoted text. */
constexpr std::string_view documentEnd = "\n...\n";

/** The content of a file, with the place of each of its bytes. */
class Source {
public:
    explicit Source(std::string_view content) : text(content)
    {
        places.reserve(text.size() + 1);
        TextPlace place{1, 0};
        for (const char character : text) {
            const bool continues = (static_cast<unsigned char>(character) & 0xC0U) == 0x80U;
            place.column += continues ? 0 : 1;
            places.push_back(place);
            if (character == '\n') {
                place = {place.line + 1, 0};
            }
        }
        places.push_back({place.line, place.column + 1});
    }

    std::string_view content() const { return text; }
    TextPlace placeAt(std::size_t offset) const { return places[std::min(offset, text.size())]; }
    TextPlace placeOf(const YAML::Mark& mark) const { return placeAt(offsetOf(mark)); }
    bool isWithin(const YAML::Mark& mark) const { return offsetOf(mark) < text.size(); }

    /** @return the place of the dash before the mark, or the mark's when something else is there */
    TextPlace dashBefore(const YAML::Mark& mark) const
    {
        const auto last = text.substr(0, offsetOf(mark)).find_last_not_of(" \t\r\n");
        return last != std::string_view::npos && text[last] == '-' ? placeAt(last) : placeOf(mark);
    }

private:
    static std::size_t offsetOf(const YAML::Mark& mark)
    {
        return mark.is_null() ? 0 : static_cast<std::size_t>(mark.pos);
    }

    std::string_view text;
    std::vector<TextPlace> places;
};

/** Refuses what is not UTF-8, and control codes: some of them have a meaning of their own to the parser. */
void checkCharacters(const Source& source)
{
    const std::string_view text = source.content();
    const std::size_t valid = validUtf8(text);
    for (std::size_t i = 0; i < valid; ++i) {
        const bool endsLine = text[i] == '\n' || text.substr(i, 2) == "\r\n";
        const bool control = static_cast<unsigned char>(text[i]) < 0x20 || text[i] == '\x7F';
        if (control && !endsLine && text[i] != '\t') {
            throw PlacedError(source.placeAt(i),
                              "a control character, code " + std::to_string(text[i]) + ", cannot stand in a scenario");
        }
    }
    if (valid < text.size()) {
        throw PlacedError(source.placeAt(valid), "this is not UTF-8");
    }
}

/** Builds the tree of nodes. What it refuses waits until the parser is through, whose errors come first. */
class TreeBuilder final : public YAML::EventHandler {
public:
    explicit TreeBuilder(const Source& itsSource) : source(itsSource) {}

    /** @throws PlacedError for the first thing that was refused */
    YamlNode take()
    {
        if (refusal) {
            throw PlacedError(*refusal);
        }
        return std::move(root);
    }

    void OnDocumentStart(const YAML::Mark& mark) override
    {
        if (std::exchange(begun, true)) {
            refuse(source.placeOf(mark), "a second document begins here: a scenario is one, check the indentation if "
                                         "none is meant");
        }
    }
    void OnDocumentEnd() override {}
    void OnNull(const YAML::Mark& mark, YAML::anchor_t /*anchor*/) override
    {
        const bool isItem = !open.empty() && open.back().node.kind == YamlNode::Kind::Sequence;
        YamlNode node;
        node.place = isItem ? source.dashBefore(mark) : source.placeOf(mark);
        add(std::move(node));
    }
    void OnAlias(const YAML::Mark& mark, YAML::anchor_t /*anchor*/) override { refuseAnchor(mark); }
    void OnAnchor(const YAML::Mark& mark, const std::string& /*name*/) override { refuseAnchor(mark); }
    void OnScalar(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t /*anchor*/,
                  const std::string& value) override
    {
        YamlNode node = makeNode(YamlNode::Kind::Scalar, mark, tag);
        node.text = value;
        node.quoted = tag == "!";
        add(std::move(node));
    }
    void OnSequenceStart(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t /*anchor*/,
                         YAML::EmitterStyle::value /*style*/) override
    {
        begin(makeNode(YamlNode::Kind::Sequence, mark, tag));
    }
    void OnSequenceEnd() override { end(); }
    void OnMapStart(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t /*anchor*/,
                    YAML::EmitterStyle::value /*style*/) override
    {
        begin(makeNode(YamlNode::Kind::Mapping, mark, tag));
    }
    void OnMapEnd() override { end(); }

private:
    /** A sequence or mapping that has begun. */
    struct Open {
        YamlNode node;
        std::set<std::string> keys = {};
        bool expectsKey = false;
        YamlNode key = {}; ///< whose value comes next
    };

    void refuse(TextPlace place, const std::string& why)
    {
        if (!refusal) {
            refusal.emplace(place, why);
        }
    }

    void refuseAnchor(const YAML::Mark& mark) { refuse(source.placeOf(mark), noAnchors); }

    YamlNode makeNode(YamlNode::Kind kind, const YAML::Mark& mark, const std::string& tag)
    {
        YamlNode node;
        node.kind = kind;
        node.place = source.placeOf(mark);
        const bool isPlain = tag.empty() || tag == "?" || tag == "!";
        if (!isPlain) {
            refuse(node.place, "a scenario has no tags: put a text that begins with ! in quotes");
        }
        return node;
    }

    void begin(YamlNode node)
    {
        if (open.size() == deepestNesting) {
            throw PlacedError(node.place, "this is nested too deeply");
        }
        const bool expectsKey = node.kind == YamlNode::Kind::Mapping;
        open.push_back({std::move(node), {}, expectsKey});
    }

    void end()
    {
        YamlNode node = std::move(open.back().node);
        open.pop_back();
        add(std::move(node));
    }

    void add(YamlNode node)
    {
        if (open.empty()) {
            root = std::move(node);
            return;
        }
        Open& parent = open.back();
        if (parent.expectsKey) {
            takeKey(parent, std::move(node));
            return;
        }
        if (parent.node.kind == YamlNode::Kind::Mapping) {
            node.key = std::move(parent.key.text);
            node.keyPlace = parent.key.place;
            node.place = node.kind == YamlNode::Kind::Null ? node.keyPlace : node.place;
            parent.expectsKey = true;
        }
        parent.node.children.push_back(std::move(node));
    }

    void takeKey(Open& mapping, YamlNode key)
    {
        if (key.kind != YamlNode::Kind::Scalar) {
            refuse(key.place, "a word is to stand before the colon");
        }
        if (!mapping.keys.insert(key.text).second) {
            refuse(key.place, excerpt(key.text) + " is given twice");
        }
        mapping.key = std::move(key);
        mapping.expectsKey = false;
    }

    const Source& source;
    bool begun = false;
    std::vector<Open> open;
    YamlNode root;
    std::optional<PlacedError> refusal;
};

} // namespace

YamlNode parseYaml(const std::string& content)
{
    const bool marked = content.compare(0, byteOrderMark.size(), byteOrderMark) == 0;
    const Source source(std::string_view(content).substr(marked ? byteOrderMark.size() : 0));
    checkCharacters(source);
    std::istringstream stream(std::string(source.content()).append(documentEnd));
    TreeBuilder builder(source);
    try {
        YAML::Parser parser(stream);
        // Not all documents: there is no end to them when the parser stands still at what it does not understand.
        for (int i = 0; i < 2 && parser.HandleNextDocument(builder); ++i) {
        }
    } catch (const YAML::Exception& e) {
        if (e.msg == YAML::ErrorMsg::UNKNOWN_ANCHOR || e.msg.rfind(YAML::ErrorMsg::UNKNOWN_ANCHOR, 0) == 0) {
            throw PlacedError(source.placeOf(e.mark), noAnchors);
        }
        const bool unclosed = e.msg == YAML::ErrorMsg::DOC_IN_SCALAR && !source.isWithin(e.mark);
        throw PlacedError(source.placeOf(e.mark),
                          "this is not YAML: " + (unclosed ? "a quoted text does not end" : printable(e.msg)));
    }
    return builder.take();
}

} // namespace panelsim
