#include <draizu/catalogue/LN_ProductID.h>

using namespace Qt::StringLiterals;

QVersionNumber const launcherVersion(21, 0, 512);

namespace {

struct ProductNames
{
    LN_ProductID product;
    char const * written;
    // Names accepted on reading, tried in this order; the list ends at the first null.
    std::array<char const *, 3> accepted;
};

// The reading names are not the mirror of the written one: oserver writes as "oserver" but
// also reads as "Orvanis Server", and the plug-ins read their catalogue and short names.
constexpr std::array<ProductNames, 11> productNames = {{
    {Product_Orvanis, "Orvanis", {"Orvanis", nullptr, nullptr}},
    {Product_Engine3dsMax, "3ds Max Plug-In", {"3ds Max Plug-In", "Engine 3ds Max", "3dsMax"}},
    {Product_EngineMaya, "Maya Plug-In", {"Maya Plug-In", "Engine Maya", "Maya"}},
    {Product_EngineUnity, "Unity Plug-In", {"Unity Plug-In", "Engine Unity", "Unity"}},
    {Product_EngineUnreal, "Unreal Plug-In", {"Unreal Plug-In", "Engine Unreal", "Unreal"}},
    {Product_Oserver, "oserver", {"Orvanis Server", "oserver", nullptr}},
    {Product_LicenseServer, "License Server", {"License Server", "mrlxnetd", nullptr}},
    {Product_OQueueClient, "OQueue Client", {"OQueue Client", "oqclient", nullptr}},
    {Product_OQueueServer, "OQueue Server", {"OQueue Server", "oqserver", nullptr}},
    {Product_MarluxLabs, "Marlux Labs", {"Marlux Labs", nullptr, nullptr}},
    {Product_Optix, "Optix", {"Optix", nullptr, nullptr}},
}};

} // namespace

LN_ProductID productFromString(QString const & name)
{
    for (ProductNames const & row : productNames) {
        for (char const * accepted : row.accepted) {
            if (accepted == nullptr)
                break;
            if (QString::compare(name, QLatin1String(accepted), Qt::CaseInsensitive) == 0)
                return row.product;
        }
    }
    return Invalid;
}

char const * productName(LN_ProductID id)
{
    for (ProductNames const & row : productNames) {
        if (row.product == id)
            return row.written;
    }
    return "Invalid";
}
