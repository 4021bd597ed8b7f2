#pragma once

#include <QtGlobal>

#include <array>

/// One optional feature that an install may add to a product: a row of constant texts, known at
/// compile time and valid for the life of the program. It cannot fail and may be read from any
/// thread.
struct LN_InstallOption
{
    /// Feature name as the catalogue writes it, and key of the install options' feature map.
    char const * name;
    /// Text for the user; this library does not read it.
    char const * displayName;
    /// Name of the command line's yes/no option for this feature.
    char const * optionId;
    /// Key of the boolean that the preferences keep for this feature.
    char const * preferenceKey;
    /// Help text of the command line option.
    char const * description;
    /// Kind of the option for the user interface; this library does not read it.
    qint32 optionKind;
};

/// The optional features of Product_Orvanis, in the order the command line offers them.
inline constexpr std::array<LN_InstallOption, 1> orvanisInstallOptions = {{
    {"PDB Files", "Debug (PDB) Files", "pdb-files", "PDB_files",
     "Install PDB files containing debugging symbols.", 1},
}};
