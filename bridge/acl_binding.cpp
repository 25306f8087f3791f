#include "acl.h"

#include "log.h"

namespace {

ky_acl_bind_params_t binding_record(ky_access_cmd_t cmd, uint32_t acl_id, uint32_t direction, uint32_t log_port)
{
    ky_acl_bind_params_t record = {};
    record.cmd = cmd;
    record.acl_id = acl_id;
    record.direction = direction;
    record.log_port = log_port;
    return record;
}

} // namespace

ky_status_t __bridge_bind_port_to_acl(uint32_t log_port, uint32_t acl_id, uint32_t direction)
{
    const kybridge::FunctionTrace trace;

    ky_acl_bind_params_t binding = binding_record(KY_ACCESS_CMD_BIND, acl_id, direction, log_port);
    const ky_status_t status = acl_bind_port(&binding);
    if (status != KY_STATUS_SUCCESS)
        LOG_ERROR("acl_bind_port to bind port [0x%x] to ACL(%d) direction (%d) failed.\n", log_port,
                  static_cast<int>(acl_id), static_cast<int>(direction));
    return status;
}

ky_status_t __bridge_unbind_port_from_acl(uint32_t log_port, uint32_t acl_id, uint32_t direction)
{
    const kybridge::FunctionTrace trace;

    ky_acl_bind_params_t binding = binding_record(KY_ACCESS_CMD_GET, 0, direction, log_port);
    ky_status_t status = acl_bind_port_get(&binding);
    if (status == KY_STATUS_ENTRY_NOT_FOUND) {
        LOG_NOTICE("log port 0x%x, direction %d expected to be bounded with acl id 0x%x, but no ACL Found.\n", log_port,
                   static_cast<int>(direction), acl_id);
        return KY_STATUS_SUCCESS;
    }
    if (status == KY_STATUS_SUCCESS) {
        if (binding.acl_id != acl_id) {
            LOG_ERROR("port [0x%x] is bound to a diffrent acl then expected (0x%x != 0x%x)\n", log_port, binding.acl_id,
                      acl_id);
            return KY_STATUS_PARAM_ERROR;
        }
        binding.cmd = KY_ACCESS_CMD_UNBIND;
        status = acl_unbind_port(&binding);
    }
    if (status != KY_STATUS_SUCCESS)
        LOG_ERROR("acl_unbind_port to unbind port [0x%x] from ACL(%d) direction (%d) failed.\n", log_port,
                  static_cast<int>(acl_id), static_cast<int>(direction));
    return status;
}
