#pragma once

#include <QtGlobal>

#include <array>

/// One optional feature that an install may add to a product.
struct LN_InstallOption
{
    /// Feature name as the catalogue writes it, and key of the install options' feature map.
    char const * name;
    char const * displayName;
    /// Name of the command line's yes/no option for this feature.
    char const * optionId;
    /// Key of the boolean that the preferences keep for this feature.
    char const * preferenceKey;
    /// Help text of the command line option.
    char const * description;
    qint32 optionKind;
};

/// The optional features of Product_Orvanis.
inline constexpr std::array<LN_InstallOption, 1> orvanisInstallOptions = {{
    {"PDB Files", "Debug (PDB) Files", "pdb-files", "PDB_files",
     "Install PDB files containing debugging symbols.", 1},
}};
