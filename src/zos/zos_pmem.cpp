// Power memory: start-up and shut-down of the "zos power memory" pool.
#include "zos_cfg_rec.h"
#include "zos_env.h"
#include "zos_pmem.h"
#include "zos_pool.h"

extern "C" {

KESTRO_API uint32_t Zos_PMemInit(void) {
    ZosEnv *env = zos::Env();
    ST_ZOS_CFG *cfg = Zos_CfgLocate();
    if (env == nullptr || cfg == nullptr) return ZFAILED;
    if (env->ucPMemInit != 0) return ZOK;
    ZPOOL pool = Zos_PoolCreate(&cfg->PMemPool);
    if (pool == nullptr) return ZFAILED;
    env->zPMemPool = pool;
    env->ucPMemInit = 1;
    return ZOK;
}

KESTRO_API void Zos_PMemDestroy(void) {
    ZosEnv *env = zos::EnvIfAny();
    if (env == nullptr || env->ucPMemInit == 0) return;
    Zos_PoolDelete(env->zPMemPool);
    env->zPMemPool = nullptr;
    env->ucPMemInit = 0;
}

}  // extern "C"
