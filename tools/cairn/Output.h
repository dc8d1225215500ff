// What every listing of the tool looks like: a row of named fields, printed as one line of
// alternating names and values that can be typed back as a filter, or as one flat JSON object.
#pragma once

#include "Dunlin/Types.h"

#include <cstdio>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace Cairn {

enum class Colour : U8 { automatic, always, never };

// Whether to colour what goes to stdout: by terminal, NO_COLOR and the user's word.
bool wantsColour(Colour colour);

// A text made safe for a terminal: control characters as \xNN. Names come from files that any
// process may have written.
std::string printable(std::string_view text);
// The same for a message: cut where it is longer than such a text should be.
std::string shortened(std::string_view text);

// Writes a line to stderr, made safe for a terminal. A stderr that cannot be written to stops nobody.
void complain(std::string const& line);

class Row {
public:
    using List = std::vector<std::string>;
    // Members of a collection, each with fields of its own.
    using Rows = std::vector<Row>;
    using Value = std::variant<std::string, U64, double, bool, List, Rows>;
    // What a value is, for its colour.
    enum class Hue : U8 { plain, address, interface, good, bad };

    Row& add(std::string name, Value value, Hue hue = Hue::plain) {
        fields_.push_back({name, name, std::move(value), hue});
        return *this;
    }
    // A list: in a line one name and value pair for each member, in JSON an array by another name.
    Row& addEach(std::string name, std::string jsonName, List values, Hue hue = Hue::plain) {
        fields_.push_back({std::move(name), std::move(jsonName), std::move(values), hue});
        return *this;
    }
    // A list: in a line joined by commas, in JSON an array.
    Row& addJoined(std::string name, List values) {
        fields_.push_back({name, name, std::move(values), Hue::plain, true});
        return *this;
    }
    std::string text(bool colour) const;
    std::string json() const;

private:
    template <class Json>
    Json as() const;

    struct Field {
        std::string name; // snake_case
        std::string jsonName;
        Value value;
        Hue hue;
        bool joined = false;
    };
    std::vector<Field> fields_;
};

// Prints rows to a stream; as JSON always one valid array, closed by `finish` or the destructor.
class Listing {
public:
    Listing(std::FILE* stream, bool json, bool colour)
        : stream_(stream), json_(json), colour_(colour), outer_(std::exchange(present, this)) {}
    ~Listing() {
        finish();
        present = outer_;
    }
    Listing(Listing const&) = delete;
    Listing& operator=(Listing const&) = delete;

    void print(Row const& row);
    void finish();
    std::size_t rows() const { return rows_; }
    // Closes the array of a listing that is under way, for who ends the process from elsewhere.
    static void finishAll();

private:
    std::FILE* stream_;
    bool json_;
    bool colour_;
    bool finished_ = false;
    std::size_t rows_ = 0;
    Listing* outer_;
    static Listing* present;
};

} // namespace Cairn
