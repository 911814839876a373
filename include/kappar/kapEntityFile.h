#pragma once
// Saved entities: from a file's pairs to a loaded, updated entity, and from an entity back to a
// file.
//
// Loading creates the entity of the file's kind, feeds every pair to the entity's own loader
// (legacy keys, synonyms and the entity's rules apply), and then runs the entity's updater from
// the saved version. Nothing read is lost: a pair that the schema does not hold, or whose value
// its parameter refuses, is reported in the load report and written back by the writer. A pair
// that an entity's loader drops on purpose (a retired setting) is reported as dropped.
//
// Writing walks the tree in declaration order and writes every value parameter: the expression
// text where the value is an expression, else the value in its own form (a number, a state key,
// "(x;y;z)", an object id, a literal). Values equal to their defaults are written too, so that a
// file keeps its meaning when a later version changes a default. Maps, member functions, error
// values and temporary arrays are not written; elements of sequences are written as "Name[i]".
// The unrecognised pairs given to the writer follow the tree's pairs, in their own order.
#include <memory>
#include <vector>

#include "kappar/kappar_export.h"
#include "kapparameter/kapParameter.h"
#include "kapparameter/kapParameterFile.h"

// Two pairs of one file that set the same parameter: keys that differ only in letter case
// ("Tolerance", then "tolerance"), or a legacy key and the current name it stands for.
struct kapEntityDuplicate {
    kapFilePair first;   // loaded
    kapFilePair second;  // not loaded; kept among the unrecognised pairs
};

// What loading a document did with its pairs.
struct kapEntityLoadReport {
    utString kind;
    int saved_version = 0;  // the version the file was saved at
    int version = 0;        // the entity's version after the update
    int loaded = 0;         // pairs stored in declared parameters
    // Pairs the schema does not hold, and pairs whose value their parameter refused (these are
    // also in `refused`), in file order with their positions.
    std::vector<kapFilePair> unrecognised;
    std::vector<kapFilePair> refused;
    // Pairs the entity's loader dropped on purpose.
    std::vector<kapFilePair> dropped;
    // Pairs that set a parameter an earlier pair already set, in file order; each second pair
    // is also in `unrecognised`, so that saving writes it back.
    std::vector<kapEntityDuplicate> duplicates;
};

// Creates the entity that `doc` describes, loads its pairs and brings it to the current version.
// Null on error with `err` filled: an unknown kind (at the kind's position), a version newer than
// the kind's current one (at the version's position).
KAPPAR_API std::unique_ptr<kapParameterRoot> kap_load_entity(const kapFileDocument& doc,
                                                             kapEntityLoadReport& report,
                                                             kapFileError& err);

// Loads `doc` into an existing entity of the same kind: the pairs are loaded into a copy that
// replaces the entity's values only when the whole load succeeded, so on error the entity is left
// as it was. The kind must match; a kind that is not registered (a tree built by hand) takes its
// root's version as the current one.
KAPPAR_API bool kap_load_entity_into(kapParameterRoot& root, const kapFileDocument& doc,
                                     kapEntityLoadReport& report, kapFileError& err);

// Reads the file at `path` and loads it as kap_load_entity does.
KAPPAR_API std::unique_ptr<kapParameterRoot> kap_read_entity(const utString& path,
                                                             kapEntityLoadReport& report,
                                                             kapFileError& err);

// The document of an entity at its version: the header, every value parameter in declaration
// order, then the unrecognised pairs given (except one whose key the tree already wrote).
KAPPAR_API kapFileDocument kap_entity_document(const kapParameterRoot& root,
                                               const std::vector<kapFilePair>& unrecognised = {});

// Writes kap_entity_document(root, unrecognised) to `path` (see kap_write_entity_file).
KAPPAR_API bool kap_write_entity(const utString& path, const kapParameterRoot& root,
                                 const std::vector<kapFilePair>& unrecognised, kapFileError& err);

// The key under which the writer saves a parameter of the tree: "Block.Limits.XMin",
// "ThicknessSetValues[16].Mode". Empty for the root and for a node outside any root.
KAPPAR_API utString kap_entity_key(const kapParameter& par);
