// A plugin that a program makes in memory, loads into a collectible context,
// uses and unloads: its module, methods and types are gone with it, and
// whoever kept their ids must not hand them to the runtime again.
using System.Reflection;
using System.Reflection.Emit;
using System.Runtime.CompilerServices;
using System.Runtime.Loader;

namespace TestPrograms
{
    public static class PluginImage
    {
        // The image of an assembly of that name, its module filled by define.
        public static byte[] Build(string name, Action<ModuleBuilder> define)
        {
            var assembly = new PersistedAssemblyBuilder(new AssemblyName(name), typeof(object).Assembly);
            define(assembly.DefineDynamicModule(name));
            using var image = new MemoryStream();
            assembly.Save(image);
            return image.ToArray();
        }

        // Loads the image into a collectible context, lets use have the
        // assembly, and unloads the context; true once it has been collected.
        public static bool LoadUseUnload(byte[] image, Action<Assembly> use)
        {
            WeakReference context = Use(image, use);
            for (int i = 0; context.IsAlive && i < 50; i++)
            {
                GC.Collect();
                GC.WaitForPendingFinalizers();
            }
            return !context.IsAlive;
        }

        [MethodImpl(MethodImplOptions.NoInlining)]
        private static WeakReference Use(byte[] image, Action<Assembly> use)
        {
            var context = new AssemblyLoadContext("plugin", isCollectible: true);
            use(context.LoadFromStream(new MemoryStream(image)));
            context.Unload();
            return new WeakReference(context);
        }
    }
}
