// The plugin of the hot reload program: a struct and a method, and a list of
// the struct, which has code of its own in the plugin's memory.
using System.Reflection;
using System.Reflection.Emit;
using TestPrograms;

namespace Reload
{
    public static class Plugin
    {
        public static string LoadAndUnload()
        {
            byte[] image = PluginImage.Build("ReloadPlugin", module =>
            {
                TypeBuilder point = module.DefineType("ReloadPlugin.Point", TypeAttributes.Public | TypeAttributes.Sealed,
                                                      typeof(ValueType));
                point.DefineField("X", typeof(int), FieldAttributes.Public);
                point.CreateType();
                TypeBuilder square = module.DefineType("ReloadPlugin.Square", TypeAttributes.Public);
                ILGenerator il = square.DefineMethod("Of", MethodAttributes.Public | MethodAttributes.Static, typeof(int),
                                                     new[] { typeof(int) }).GetILGenerator();
                foreach (OpCode opcode in new[] { OpCodes.Ldarg_0, OpCodes.Dup, OpCodes.Mul, OpCodes.Ret })
                    il.Emit(opcode);
                square.CreateType();
            });
            bool unloaded = PluginImage.LoadUseUnload(image, plugin =>
            {
                plugin.GetType("ReloadPlugin.Square").GetMethod("Of").Invoke(null, new object[] { 3 });
                Type point = plugin.GetType("ReloadPlugin.Point");
                var list = Activator.CreateInstance(typeof(List<>).MakeGenericType(point));
                list.GetType().GetMethod("Add").Invoke(list, new[] { Activator.CreateInstance(point) });
            });
            return unloaded ? "unloaded, asked again: " + Program.RequestByName("ReloadPlugin") : "kept";
        }
    }
}
