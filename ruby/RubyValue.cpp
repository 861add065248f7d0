#include "ruby/RubyValue.h"

#include <cmath>
#include <cstdio>
#include <stdexcept>

#include "ruby/ValueAccess.h"

namespace orvane::ruby {
namespace {

// Arrays and maps nest, so freeing the outermost one would free the inner ones recursively,
// as deep as the nesting: a script can nest a million levels in a loop. Past a few levels the
// contents of a dying container are parked in a list, and the outermost free empties that list
// in a loop, so the native stack stays shallow.
constexpr int kInlineFreeDepth = 32;
thread_local int freeDepth = 0;
thread_local std::vector<RubyArray> parkedArrays;
thread_local std::vector<RubyMap> parkedMaps;

void drainParked() {
    for (;;) {
        if (!parkedArrays.empty()) {
            RubyArray doomed = std::move(parkedArrays.back());
            parkedArrays.pop_back();
        } else if (!parkedMaps.empty()) {
            RubyMap doomed = std::move(parkedMaps.back());
            parkedMaps.pop_back();
        } else {
            return;
        }
    }
}

template <typename Container>
void destroyContainer(Container* container, std::vector<Container>& parked) {
    if (freeDepth >= kInlineFreeDepth) {
        parked.push_back(std::move(*container));
        container->~Container();
        return;
    }
    ++freeDepth;
    container->~Container();
    if (freeDepth == 1) drainParked();
    --freeDepth;
}

// The allocator of every array and map: allocate_shared destroys the object through it.
template <typename T>
struct ContainerAllocator {
    using value_type = T;
    ContainerAllocator() = default;
    template <typename U>
    ContainerAllocator(const ContainerAllocator<U>&) {}
    T* allocate(size_t n) { return std::allocator<T>().allocate(n); }
    void deallocate(T* p, size_t n) { std::allocator<T>().deallocate(p, n); }
    template <typename U, typename... Args>
    void construct(U* p, Args&&... args) {
        new (p) U(std::forward<Args>(args)...);
    }
    template <typename U>
    void destroy(U* p) {
        if constexpr (std::is_same_v<U, RubyArray>)
            destroyContainer(p, parkedArrays);
        else if constexpr (std::is_same_v<U, RubyMap>)
            destroyContainer(p, parkedMaps);
        else
            p->~U();
    }
    template <typename U>
    bool operator==(const ContainerAllocator<U>&) const { return true; }
    template <typename U>
    bool operator!=(const ContainerAllocator<U>&) const { return false; }
};

template <typename Container, typename... Args>
std::shared_ptr<void> makeContainer(Args&&... args) {
    return std::allocate_shared<Container>(ContainerAllocator<Container>(), std::forward<Args>(args)...);
}

// toString stops here; a cycle is caught before, by the path of open containers.
constexpr size_t kMaxPrintDepth = 200;
// The text of a value that shares one container many times over can be far larger than the
// value; past this many bytes its making stops.
constexpr size_t kMaxPrintBytes = size_t(1) << 30;

struct TextTooLong {};

void appendValue(const RubyValue& value, std::string& out, std::vector<const void*>& path, size_t limit);

void appendNumber(double number, std::string& out) {
    // What a default-formatted stream writes: six significant digits, the shorter of the forms.
    char buffer[64];
    int size = std::snprintf(buffer, sizeof buffer, "%g", number);
    out.append(buffer, static_cast<size_t>(size));
}

template <typename Body>
void appendContainer(const void* identity, char open, char close, std::string& out, std::vector<const void*>& path,
                     size_t limit, Body body) {
    if (out.size() > limit) throw TextTooLong{};
    for (const void* open_ : path) {
        if (open_ == identity) {
            out += open;
            out += "...";
            out += close;
            return;
        }
    }
    if (path.size() >= kMaxPrintDepth) throw std::runtime_error("value nesting is too deep");
    path.push_back(identity);
    out += open;
    body();
    out += close;
    path.pop_back();
}

void appendValue(const RubyValue& value, std::string& out, std::vector<const void*>& path, size_t limit) {
    switch (value.type()) {
    case RubyValueType::Nil: out += "nil"; break;
    case RubyValueType::Integer: out += std::to_string(RubyValueAccess::integer(value)); break;
    case RubyValueType::Float: appendNumber(RubyValueAccess::number(value), out); break;
    case RubyValueType::Boolean: out += RubyValueAccess::boolean(value) ? "true" : "false"; break;
    case RubyValueType::String: out += RubyValueAccess::string(value); break;
    case RubyValueType::Array: {
        const RubyArray& elements = RubyValueAccess::array(value);
        appendContainer(&elements, '[', ']', out, path, limit, [&] {
            for (size_t i = 0; i < elements.size(); ++i) {
                if (i) out += ", ";
                appendValue(elements[i], out, path, limit);
            }
        });
        break;
    }
    case RubyValueType::Map: {
        const RubyMap& entries = RubyValueAccess::map(value);
        appendContainer(&entries, '{', '}', out, path, limit, [&] {
            bool first = true;
            for (const auto& [key, element] : entries) {
                if (!first) out += ", ";
                first = false;
                out += key;
                out += ": ";
                appendValue(element, out, path, limit);
            }
        });
        break;
    }
    case RubyValueType::Function:
        out += "[function ";
        out += RubyValueAccess::function(value)->name;
        out += "]";
        break;
    default: out += "nil"; break;
    }
}

}  // namespace

bool appendText(std::string& out, const RubyValue& value, size_t maxBytes) {
    std::vector<const void*> path;
    try {
        appendValue(value, out, path, maxBytes);
    } catch (const TextTooLong&) {
        return false;
    }
    return out.size() <= maxBytes;
}

RubyValue::RubyValue(const char* text) : RubyValue(std::string(text ? text : "")) {}

RubyValue::RubyValue(std::string text) : type_(RubyValueType::String) {
    new (&shared_) std::shared_ptr<void>(std::make_shared<std::string>(std::move(text)));
}

RubyValue::RubyValue(const RubyArray& elements) : type_(RubyValueType::Array) {
    new (&shared_) std::shared_ptr<void>(makeContainer<RubyArray>(elements));
}

RubyValue::RubyValue(RubyArray&& elements) : type_(RubyValueType::Array) {
    new (&shared_) std::shared_ptr<void>(makeContainer<RubyArray>(std::move(elements)));
}

RubyValue::RubyValue(const RubyMap& entries) : type_(RubyValueType::Map) {
    new (&shared_) std::shared_ptr<void>(makeContainer<RubyMap>(entries));
}

RubyValue::RubyValue(RubyMap&& entries) : type_(RubyValueType::Map) {
    new (&shared_) std::shared_ptr<void>(makeContainer<RubyMap>(std::move(entries)));
}

RubyValue::RubyValue(std::shared_ptr<RubyFunctionHandle> handle) {
    if (handle) {
        type_ = RubyValueType::Function;
        new (&shared_) std::shared_ptr<void>(std::move(handle));
    } else {
        type_ = RubyValueType::Nil;
        words_[0] = words_[1] = 0;
    }
}

RubyValue RubyValue::makeArray() { return RubyValue(RubyArray()); }
RubyValue RubyValue::makeMap() { return RubyValue(RubyMap()); }

std::string RubyValue::toString() const {
    std::string out;
    if (!appendText(out, *this, kMaxPrintBytes)) throw std::runtime_error("string is too long");
    return out;
}

int64_t RubyValue::asInteger() const {
    switch (type_) {
    case RubyValueType::Integer: return integer_;
    case RubyValueType::Boolean: return boolean_ ? 1 : 0;
    case RubyValueType::Float: {
        double x = number_;
        if (std::isnan(x)) return 0;
        if (x >= 9223372036854775807.0) return INT64_MAX;
        if (x <= -9223372036854775808.0) return INT64_MIN;
        return static_cast<int64_t>(x);
    }
    default: throw std::runtime_error("value is not numeric");
    }
}

double RubyValue::asFloat() const {
    switch (type_) {
    case RubyValueType::Integer: return static_cast<double>(integer_);
    case RubyValueType::Float: return number_;
    case RubyValueType::Boolean: return boolean_ ? 1.0 : 0.0;
    default: throw std::runtime_error("value is not numeric");
    }
}

bool RubyValue::asBoolean() const {
    if (type_ != RubyValueType::Boolean) throw std::runtime_error("value is not boolean");
    return boolean_;
}

const std::string& RubyValue::asString() const {
    if (type_ != RubyValueType::String) throw std::runtime_error("value is not a string");
    return RubyValueAccess::string(*this);
}

RubyArray& RubyValue::asArray() const {
    if (type_ != RubyValueType::Array) throw std::runtime_error("value is not an array");
    return RubyValueAccess::array(*this);
}

RubyMap& RubyValue::asMap() const {
    if (type_ != RubyValueType::Map) throw std::runtime_error("value is not a map");
    return RubyValueAccess::map(*this);
}

std::shared_ptr<RubyFunctionHandle> RubyValue::asFunction() const {
    if (type_ != RubyValueType::Function) throw std::runtime_error("value is not a function");
    return std::static_pointer_cast<RubyFunctionHandle>(shared_);
}

}  // namespace orvane::ruby
