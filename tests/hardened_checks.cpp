// Faults that only a compiler's check can see, built with the options of the library.
#include <cstdint>

int32_t add(int32_t a, int32_t b);
int callWrongClass();

namespace {

struct Right {
    virtual ~Right() = default;
    virtual int value() { return 1; }
};
struct Wrong {
    virtual ~Wrong() = default;
    virtual int value() { return 2; }
};

}  // namespace

int32_t add(int32_t a, int32_t b) { return a + b; }

// Calls a virtual function of one class on an object of another, as a corrupted pointer would.
int callWrongClass() {
    Right right;
    Wrong wrong;
    void* volatile objects[] = {&right, &wrong};  // volatile: the compiler must not see through it
    return static_cast<Right*>(objects[0])->value() + reinterpret_cast<Right*>(objects[1])->value();
}
