// Layout of the configuration record: the settings in their fixed order.
#pragma once

#include "zos_cfg.h"

struct tagZOS_CFG {
#define ZOS_CFG_FIELD(name, type, def, fb) type name;
#define ZOS_CFG_POOL_FIELD(name) ST_ZOS_POOL_CFG name;
    ZOS_CFG_FLAGS(ZOS_CFG_FIELD)
    ZOS_CFG_VALUES_A(ZOS_CFG_FIELD)
    ZOS_CFG_POOLS(ZOS_CFG_POOL_FIELD)
    ZOS_CFG_VALUES_B(ZOS_CFG_FIELD)
    ZOS_CFG_RULED_A(ZOS_CFG_FIELD)
    ZOS_CFG_VALUES_C(ZOS_CFG_FIELD)
    ZOS_CFG_RULED_B(ZOS_CFG_FIELD)
    char LogDir[ZOS_CFG_TEXT_SIZE];
    char LogFile[ZOS_CFG_TEXT_SIZE];
    ZOS_CFG_VALUES_D(ZOS_CFG_FIELD)
#undef ZOS_CFG_FIELD
#undef ZOS_CFG_POOL_FIELD
};
