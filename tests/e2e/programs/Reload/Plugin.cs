// A plugin that the program makes in memory, loads into a collectible context,
// uses and unloads: its module, its method and a list of its struct are gone
// with it, and whoever kept their ids must not hand them to the runtime again.
using System.Reflection;
using System.Reflection.Emit;
using System.Runtime.CompilerServices;
using System.Runtime.Loader;

namespace Reload
{
    public static class Plugin
    {
        public static string LoadAndUnload()
        {
            WeakReference context = Use(Build());
            for (int i = 0; context.IsAlive && i < 50; i++)
            {
                GC.Collect();
                GC.WaitForPendingFinalizers();
            }
            return context.IsAlive ? "kept" : "unloaded, asked again: " + Program.RequestByName("ReloadPlugin");
        }

        private static byte[] Build()
        {
            var assembly = new PersistedAssemblyBuilder(new AssemblyName("ReloadPlugin"), typeof(object).Assembly);
            ModuleBuilder module = assembly.DefineDynamicModule("ReloadPlugin");
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
            using var image = new MemoryStream();
            assembly.Save(image);
            return image.ToArray();
        }

        [MethodImpl(MethodImplOptions.NoInlining)]
        private static WeakReference Use(byte[] image)
        {
            var context = new AssemblyLoadContext("plugin", isCollectible: true);
            Assembly plugin = context.LoadFromStream(new MemoryStream(image));
            plugin.GetType("ReloadPlugin.Square").GetMethod("Of").Invoke(null, new object[] { 3 });
            // A list of the plugin's struct: code of its own, in the plugin's memory.
            var list = Activator.CreateInstance(typeof(List<>).MakeGenericType(plugin.GetType("ReloadPlugin.Point")));
            list.GetType().GetMethod("Add").Invoke(list, new[] { Activator.CreateInstance(plugin.GetType("ReloadPlugin.Point")) });
            context.Unload();
            return new WeakReference(context);
        }
    }
}
