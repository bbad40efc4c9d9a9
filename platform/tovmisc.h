// The keyed parameter store and the component interface that panels, the settings store and the engines meet on.
//
// A component is a long-lived object whose tunable and observable values are reached by key. Its values live in
// variables of their owner, bound to a TovParamStorage; the storage reads and writes them in place.
//
// Threads: every operation of TovParamStorage and TovComponent may be called from any thread. Bound scalars are read
// and written by atomic access of their own width. No lock of the storage is held while onChange functions, listeners
// and commands run, so they may call the same storage again.
//
// Status: 0 in the low 16 bits is success. A nonzero low half means that nothing was changed and nobody notified.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>

#if defined(TovMisc_EXPORTS)
#define TOV_MISC_API __attribute__((visibility("default")))
#else
#define TOV_MISC_API
#endif

using TovStatus = unsigned long;

// Low halves of the statuses that the storage gives; callers compare with 0 only.
enum TovParamError : TovStatus {
    TOV_PARAM_OK = 0,
    TOV_PARAM_ERR_UNKNOWN_KEY = 0x80000001,
    TOV_PARAM_ERR_TYPE = 0x80000002,     // the key's type does not fit the operation
    TOV_PARAM_ERR_VALUE = 0x80000003,    // text that is not a value of the type, NaN, a string longer than its buffer
    TOV_PARAM_ERR_FORMAT = 0x80000004,   // a printf format that does not fit the one value
    TOV_PARAM_ERR_ARGUMENT = 0x80000005, // null pointer, index out of range, key registered twice
    TOV_PARAM_ERR_BUFFER = 0x80000006,   // the caller's buffer is too small; the needed size is stored
};

inline bool TovSucceeded(TovStatus status)
{
    return (status & 0xFFFF) == 0;
}

// How an owner, or anyone else who knows a bound scalar, reads and writes it past the storage. Both are relaxed: they
// make the access whole, and order nothing.
template<typename T>
T TovLoadBound(T const &variable)
{
    T value;
    __atomic_load(&variable, &value, __ATOMIC_RELAXED);
    return value;
}
template<typename T>
void TovStoreBound(T &variable, std::type_identity_t<T> value)
{
    __atomic_store(&variable, &value, __ATOMIC_RELAXED);
}

enum TovParamType : std::uint32_t {
    TOV_PARAM_INT = 0,
    TOV_PARAM_BOOL = 1,
    TOV_PARAM_FLOAT = 2,
    TOV_PARAM_STRING = 3,
    TOV_PARAM_ARRAY = 4,
    TOV_PARAM_COMMAND = 5,
};

// Description of one parameter, and the record that listeners receive. Zeroed by the component before each use,
// copied by the storage. The union's live member follows from `type`.
struct _TovStParam
{
    std::uint32_t type;
    std::uint32_t flags;
    char name[256]; // the key, zero-terminated
    std::uint8_t reserved[24];
    unsigned int (*onChange)(unsigned int component, _TovStParam *param); // null: no notification
    union {
        struct
        {
            std::int64_t defaultValue;
            std::int64_t minimum;
            std::int64_t maximum;
            std::uint64_t reserved;
            std::int64_t *value;
        } i;
        struct
        {
            double defaultValue;
            double minimum;
            double maximum;
            std::uint64_t reserved;
            double *value;
        } f;
        struct
        {
            std::uint8_t reserved;
            std::uint8_t defaultValue;
            bool *value;
        } b;
        struct
        {
            char const *defaultValue;
            char *value;
            std::uint32_t capacity; // bytes of `value`, the terminator included
        } s;
        struct
        {
            std::uint64_t reserved[2];
            void const *defaultValue;
            std::uint64_t defaultSize;
            void *value;
            std::uint64_t size;
        } a;
        struct
        {
            unsigned int (*function)(void *context);
            void *context;
        } c;
    };
};

// Told of every notifying change of the keys it was added for, on the thread that made the change.
class TovParamListener
{
public:
    virtual void ParamChanged(_TovStParam param) = 0;

protected:
    ~TovParamListener() = default;
};

// The store of one component. Keys are zero-terminated 8-bit text; parameters keep the order of registration.
class TOV_MISC_API TovParamStorage
{
public:
    // `component` is handed to onChange as its first argument.
    explicit TovParamStorage(unsigned int component);
    ~TovParamStorage();
    TovParamStorage(TovParamStorage const &) = delete;
    TovParamStorage &operator=(TovParamStorage const &) = delete;

    // The owner has stored the initial value in the bound variable before this call; the variable outlives the store.
    TovStatus AddParam(_TovStParam const *param);
    // The listener outlives the store, or is removed before it dies.
    TovStatus AddParamChangedListener(char const *key, TovParamListener *listener);
    // A call that another thread has begun may still be running afterwards.
    TovStatus RemoveParamChangedListener(char const *key, TovParamListener *listener);

    unsigned int GetParamCount() const;
    TovStatus GetParamByIdx(unsigned int index, _TovStParam *param) const;

    TovStatus GetParamBool(char const *key, bool *value) const;
    TovStatus GetParamInt(char const *key, long *value) const;
    TovStatus GetParamFloat(char const *key, double *value) const;
    // `*capacity` holds the buffer's bytes; with too small a buffer it receives the needed ones, terminator included.
    TovStatus GetParamString(char const *key, char *buffer, unsigned int *capacity) const;
    // `*size` holds the buffer's bytes, and receives the block's in either case.
    TovStatus GetParamArray(char const *key, void *buffer, unsigned int *size) const;
    // Renders any type but a command as text. `format` is null or a printf format for that one value: integer
    // conversions for integers and booleans, floating ones for floats, %s for strings. Raw bytes render as hex.
    TovStatus GetParamAsString(char const *key, char *buffer, unsigned int *capacity, char const *format) const;

    // A number outside minimum and maximum is clamped. With `notify`, onChange and the key's listeners run afterwards.
    TovStatus SetParamBool(char const *key, bool value, bool notify);
    TovStatus SetParamInt(char const *key, long value, bool notify);
    TovStatus SetParamFloat(char const *key, double value, bool notify);
    TovStatus SetParamString(char const *key, char const *value, bool notify);
    // `size` is the block's, no more and no less.
    TovStatus SetParamArray(char const *key, void const *data, unsigned int size, bool notify);
    // Reads back what GetParamAsString wrote with a null format.
    TovStatus SetParamAsString(char const *key, char const *value, bool notify);

    // The command's own result.
    TovStatus RunCommand(char const *key);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

// A component as panels and engines see it. Every setter notifies.
class TovComponent
{
public:
    virtual ~TovComponent() = default;
    virtual unsigned char GetComponentTypeID() = 0;
    virtual unsigned int GetParamCount() = 0;
    // `*length` is the buffer's size in and, on failure, the needed size out.
    virtual TovStatus GetParamName(unsigned int index, char *name, unsigned int *length) = 0;
    virtual TovStatus GetParamAsString(char const *key, char *buffer, unsigned int *length, char const *format) = 0;
    virtual TovStatus SetParamAsString(char const *key, char const *value) = 0;
    virtual TovStatus SetParamBool(char const *key, bool value) = 0;
    virtual TovStatus SetParamInt(char const *key, long value) = 0;
    virtual TovStatus SetParamFloat(char const *key, double value) = 0;
    virtual TovStatus SetParamString(char const *key, char const *value) = 0;
    virtual TovStatus SetParamArray(char const *key, void const *data, unsigned int size) = 0;
    virtual TovStatus GetParamBool(char const *key, bool *value) = 0;
    virtual TovStatus GetParamInt(char const *key, long *value) = 0;
    virtual TovStatus GetParamFloat(char const *key, double *value) = 0;
    virtual TovStatus GetParamString(char const *key, char *buffer, unsigned int *length) = 0;
    virtual TovStatus GetParamArray(char const *key, void *data, unsigned int *size) = 0;
    virtual TovStatus RunCommand(char const *key) = 0;
};
