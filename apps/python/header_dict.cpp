#include "header_dict.h"

#include <string>
#include <variant>

#include "mapping_items.h"

namespace py = pybind11;
using murmex_host::ProfileHeader;

namespace murmex_python {

namespace {

using TextField = std::optional<std::string> ProfileHeader::*;
using IntField = std::optional<int> ProfileHeader::*;
using RealField = std::optional<float> ProfileHeader::*;

struct Field {
    const char* name;
    std::variant<TextField, IntField, RealField> member;
};

const Field kFields[] = {
    {"maker", &ProfileHeader::maker},
    {"model", &ProfileHeader::model},
    {"film", &ProfileHeader::film},
    {"iso", &ProfileHeader::iso},
    {"multisampling", &ProfileHeader::multisampling},
    {"shutter_speed", &ProfileHeader::shutterSpeed},
    {"exposure_comp", &ProfileHeader::exposureComp},
    {"megapixels", &ProfileHeader::megapixels},
    {"quality", &ProfileHeader::quality},
    {"sharpness", &ProfileHeader::sharpness},
    {"illuminant", &ProfileHeader::illuminant},
    {"contrast", &ProfileHeader::contrast},
    {"saturation", &ProfileHeader::saturation},
    {"temperature", &ProfileHeader::temperature},
    {"color_space", &ProfileHeader::colorSpace},
    {"author", &ProfileHeader::author},
    {"comment", &ProfileHeader::comment},
};

template <class T>
py::object toPython(const std::optional<T>& v)
{
    return v ? py::cast(*v) : py::none();
}

[[noreturn]] void wrongType(const char* name, const char* wanted, const py::handle& value)
{
    throw py::type_error(std::string("header field ") + name + " must be " + wanted + " or None, not " +
                         py::repr(value).cast<std::string>());
}

void store(ProfileHeader& h, const Field& field, const py::handle& value)
{
    std::visit(
        [&](auto member) {
            using Value = typename std::remove_reference_t<decltype(h.*member)>::value_type;
            if (value.is_none()) {
                (h.*member).reset();
            } else if constexpr (std::is_same_v<Value, std::string>) {
                if (!py::isinstance<py::str>(value))
                    wrongType(field.name, "a str", value);
                h.*member = value.cast<std::string>();
            } else if constexpr (std::is_same_v<Value, int>) {
                if (!PyLong_Check(value.ptr()) || PyBool_Check(value.ptr()))
                    wrongType(field.name, "an int", value);
                h.*member = value.cast<int>();
            } else {
                if (!PyLong_Check(value.ptr()) && !PyFloat_Check(value.ptr()))
                    wrongType(field.name, "a number", value);
                h.*member = value.cast<float>();
            }
        },
        field.member);
}

}  // namespace

py::dict headerDict(const ProfileHeader& header)
{
    py::dict d;
    for (const Field& field : kFields)
        std::visit([&](auto member) { d[field.name] = toPython(header.*member); }, field.member);
    return d;
}

void applyHeader(ProfileHeader& header, const py::handle& mapping)
{
    ProfileHeader updated = header;
    forEachItem(mapping, "header", "Profile.header", [&](const py::handle& key, const py::handle& value) {
        const std::string name = py::str(key).cast<std::string>();
        const Field* field = nullptr;
        for (const Field& f : kFields)
            if (name == f.name)
                field = &f;
        if (!field)
            throw py::type_error("unknown header field " + py::repr(key).cast<std::string>() + "; the fields are " +
                                 py::str(", ").attr("join")(headerDict(ProfileHeader{})).cast<std::string>());
        store(updated, *field, value);
    });
    header = updated;
}

}  // namespace murmex_python
