// The parameters of a node map: what TovCam::ParamArray hands out by name, and its typed values by name.
#pragma once

#include "genicamnodes.h"

#include <map>
#include <memory>
#include <set>
#include <string>

// Any thread. A parameter lives as long as this, and so does each text of an enumeration.
class NodeParams
{
public:
    explicit NodeParams(GenicamNodes &nodes); // which outlives it
    ~NodeParams();

    TovCam::EnumParam *GetEnum(char const *name, std::int32_t *error);
    TovCam::IntParam *GetInt(char const *name, std::int32_t *error);
    TovCam::StringParam *GetString(char const *name, std::int32_t *error);

    std::int64_t GetInteger(char const *name, std::int32_t *error);
    double GetFloat(char const *name, std::int32_t *error);
    char const *GetEntry(char const *name, std::int32_t *error); // null where there is none

private:
    class Base;
    class Integer;
    class String;
    class Enumeration;
    template<class P>
    using ByName = std::map<std::string, std::unique_ptr<P>, std::less<>>;

    template<class P>
    P *GetParam(ByName<P> &params, char const *name, TovCam::FeatureKind kind, std::int32_t *error);
    std::int64_t ReadInteger(ArvGcFeatureNode *node, std::int32_t *error);
    char const *ReadEntry(ArvGcFeatureNode *node, std::int32_t *error);

    GenicamNodes &m_nodes;
    // Guarded by the device's lock.
    ByName<Integer> m_integers;
    ByName<String> m_strings;
    ByName<Enumeration> m_enumerations;
    std::set<std::string, std::less<>> m_texts; // of entries: a finite set, which keeps them valid for good
};
