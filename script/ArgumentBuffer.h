// Call arguments on the stack: up to 8 live in place, more spill to the heap. Only the
// arguments that exist are constructed.
#pragma once

#include <new>
#include <vector>

#include "script/Variable.h"

namespace orvane {

class ArgumentBuffer {
public:
    explicit ArgumentBuffer(size_t count) {
        if (count > kInline) spill.reserve(count);
    }
    ~ArgumentBuffer() {
        if (spill.empty())
            for (size_t i = 0; i < used; ++i) inlineData()[i].~Variable();
    }
    ArgumentBuffer(const ArgumentBuffer&) = delete;
    ArgumentBuffer& operator=(const ArgumentBuffer&) = delete;

    // Takes the value that make() returns, built straight in its place when it lives inline.
    template <typename Make>
    void pushFrom(Make&& make) {
        if (spill.capacity() > 0) {
            spill.push_back(make());
        } else {
            new (inlineData() + used) Variable(make());
        }
        ++used;
    }
    Variable* data() { return spill.capacity() > 0 ? spill.data() : inlineData(); }
    size_t size() const { return used; }

private:
    static constexpr size_t kInline = 8;
    Variable* inlineData() { return std::launder(reinterpret_cast<Variable*>(storage)); }
    alignas(Variable) unsigned char storage[kInline * sizeof(Variable)];
    std::vector<Variable> spill;
    size_t used = 0;
};

}  // namespace orvane
